// Tests with what the package has for it, and without a framework. With an argument it leaves a line
// unexpected.

#include <iostream>

#include <OxLogCapture.h>
#include <Oxil.h>

int main(int argc, char**)
{
    const oxil::KeyValues record;
    if (argc > 1) {
        record.getValue("question");
    }
    const oxil::test::LogCapture log;
    record.getValue("question");
    for (const oxil::test::LogLine& line : log.lines()) {
        std::cout << line.file << ": " << line.function << " > " << line.message << '\n';
    }
}
