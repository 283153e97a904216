// A settings service as nobody wants it, to see what the picker makes of it.
//
// Usage: picker-rogue silent|gone|mangled|half SOCKET
//
// It takes one call, and then
//   silent   says nothing
//   gone     is gone
//   mangled  answers with a message that contradicts itself
//   half     sends the first bytes of an answer and no more

#include <unistd.h>

#include <cstdio>
#include <string>

#include <Oxil.h>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: picker-rogue silent|gone|mangled|half SOCKET\n");
        return 2;
    }
    const std::string mode = argv[1];
    const int socket = oxil::NumberParser::toInt(argv[2]);

    char call[4096];
    if (read(socket, call, sizeof call) < 1 || mode == "gone") {
        return 1;
    }
    // Kind and number of the answer, and a message with 127 blocks.
    const char answer[] = {2, 1, 0, 0, 0, 'O', 'x', 1, 1, 127};
    const std::size_t size = mode == "mangled" ? sizeof answer : mode == "half" ? 7 : 0;
    if (write(socket, answer, size) < 0) {
        return 1;
    }
    for (;;) {
        pause();
    }
}
