// The first race ends the program, so that it is the running test that fails.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options()
{
    return "halt_on_error=1";
}
