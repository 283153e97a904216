#include <Oxil.h>
#include <cstdio>

int main()
{
    const oxil::KeyValues lamp = {{"name", "hall lamp"}, {"brightness", 80}};

    oxil::SerializedData message;  // a description and a data area, ready to be sent
    oxil::Serializer::serialize(lamp, message);

    oxil::KeyValues received;  // what the other side makes of it
    oxil::Serializer::deserialize(message, received);
    std::printf("%s: %d\n", received.get("name", "?").c_str(), received.get("brightness", 0));
}
