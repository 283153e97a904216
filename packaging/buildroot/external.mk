include $(sort $(wildcard $(BR2_EXTERNAL_OXIL_PATH)/package/*/*.mk))
