#include <Oxil.h>
#include <cstdio>

int main()
{
    oxil::KeyValues lamp;
    lamp.add("name", "hall lamp");
    lamp.add("brightness", 80);

    oxil::SerializedData message;  // a description and a data area, ready to be sent
    oxil::Serializer::serialize(lamp, message);

    oxil::KeyValues received;  // what the other side makes of it
    oxil::Serializer::deserialize(message, received);
    std::printf("%s: %d\n", received.getValue("name").toString().c_str(),
                received.getValue("brightness").toInt());
}
