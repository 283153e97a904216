#include <cstdio>

#include <Oxil.h>

int main()
{
    oxil::KeyValues record;
    record.getValue("question");

    const oxil::Screen* screen = oxil::Screen::getInstance();
    std::printf("screen: %d x %d\n", screen->getWidth(), screen->getHeight());
}
