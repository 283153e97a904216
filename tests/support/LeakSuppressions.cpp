// A timer that fires once gives up the cell that holds the id of its source, each time it fires, on
// purpose. Only these cells, and copies of callbacks, are allocated in this function; that nothing
// but the cells is lost there is what TimerMemoryTest makes sure of.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:oxil::Timer::__start\n";
}
