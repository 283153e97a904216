// A settings service as nobody wants it, to see what the picker makes of it.
//
// Usage: picker-rogue silent|gone|mangled|half SOCKET
//
// It takes one call, and then
//   silent   says nothing
//   gone     is gone
//   mangled  answers with a description that contradicts itself
//   half     sends half of a description and no more

#include <unistd.h>

#include <cstdio>
#include <string>

#include <Oxil.h>

#include "transport.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: picker-rogue silent|gone|mangled|half SOCKET\n");
        return 2;
    }
    const std::string mode = argv[1];
    const int socket = oxil::NumberParser::toInt(argv[2]);

    picker::Message call;
    if (receive(socket, call) != picker::Received::MESSAGE || mode == "gone") {
        return 1;
    }
    oxil::SerializationInfo info = call.info;
    info.typeCount[0] = oxil::MAX_TYPE_COUNT + 1;
    info.dataSize[0] = 0;
    info.dataSize[1] = 0;
    if (mode == "mangled" && write(socket, &info, sizeof info) < 0) {
        return 1;
    }
    if (mode == "half" && write(socket, &info, sizeof info / 2) < 0) {
        return 1;
    }
    for (;;) {
        pause();
    }
}
