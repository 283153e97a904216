// Writes the files of tests/data anew; README.md there says when and how.

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "GoldenEncoder.h"
#include "GoldenWireEncoder.h"

namespace {

bool write(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (const std::uint8_t byte : bytes) {
        file.put(static_cast<char>(byte));
    }
    file.close();
    if (!file) {
        std::fprintf(stderr, "can't write %s\n", path.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: write-golden-files <directory>\n");
        return 2;
    }

    const std::string directory = argv[1];
    for (const oxil::test::GoldenPayload& payload : oxil::test::goldenPayloads()) {
        const oxil::test::GoldenBytes bytes = oxil::test::encode(payload);
        const std::string path = directory + "/" + payload.name;
        const std::string json = oxil::test::toJson(bytes);
        if (!write(path + ".info", bytes.info) || !write(path + ".data", bytes.data) ||
            !write(path + ".wire", oxil::test::encodeWire(bytes)) ||
            !write(path + ".json", {json.begin(), json.end()})) {
            return 1;
        }
    }
    return 0;
}
