# Tells what a package's file says: make -f package.mk FILE=external.mk NAME...

qstrip = $(strip $(subst ",,$(1)))

# A package of this kind ends its file with it.
cmake-package = ended := yes

include $(FILE)

$(MAKECMDGOALS):
	$(if $(ended),,$(error $(FILE) has no package for CMake))
	@: $(info $($@))
