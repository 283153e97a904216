#include <Oxil.h>

#include <string>

// The debugger stops here, and looks at what the caller has.
[[gnu::noinline]] void stop()
{
    asm volatile("");
}

int main()
{
    const oxil::Variant kinds[] = {{}, -1, 2U, -3L, 4UL, -5LL, 6ULL, 0.5F, -0.25, true, "a \"b\""};
    const oxil::Variant longText(std::string(300, 'x'));

    const oxil::KeyValue entry("brightness", 80);
    const oxil::KeyValues nothing;
    oxil::KeyValues lamp;
    lamp.add("name", "hall");
    lamp.add("brightness", 80);

    oxil::SerializedData described(2);
    described.addType(0, oxil::VARIANT_TYPE_INT);
    described.addType(0, oxil::VARIANT_TYPE_DOUBLE);
    described.addType(1, oxil::VARIANT_TYPE_STRING);
    described.setRepeatCount(1, 3);
    oxil::SerializedData message;
    oxil::Serializer::serialize(lamp, message);

    const oxil::Color orange(255, 128, 0);
    const oxil::Point corner(3, -4);
    const oxil::Dimension size(800, 480);
    [[maybe_unused]] const oxil::Rectangle area(corner, size);

    stop();
}
