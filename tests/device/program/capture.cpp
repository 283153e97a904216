// A test of an application, which the device's own logger is not to hear of.

#include <cstdio>

#include <OxLogCapture.h>
#include <Oxil.h>

int main()
{
    oxil::test::LogCapture log;
    oxil::KeyValues record;
    record.getValue("question");
    std::printf("captured: %s\n", log.lines().at(0).message.c_str());
}
