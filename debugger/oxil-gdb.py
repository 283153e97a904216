"""How GDB shows Oxil's values and records.

GDB loads this by itself from the place where it is installed. It reads fields and calls nothing, so
that it works on a core of another machine as well, and it takes no field's word for what it could
ask without end: what is being looked at may be broken.
"""

import gdb
import gdb.printing

MAX_BLOCK_COUNT = 5
MAX_TYPE_COUNT = 2000
SHOWN_LENGTH = 256  # bytes of a text
SHOWN_TYPES = 16  # entries of a block

# The kinds by their numbers: how they are called, and where the value lies.
KINDS = (
    ("none", None),
    ("int", "asInt"),
    ("uint", "asUInt"),
    ("long", "asInt"),
    ("ulong", "asUInt"),
    ("longlong", "asLongLong"),
    ("ulonglong", "asULongLong"),
    ("float", "asFloat"),
    ("double", "asDouble"),
    ("bool", "asBool"),
    ("string", None),
)


def kind_name(number):
    return KINDS[number][0] if 0 <= number < len(KINDS) else f"kind {number}"


def counted(count, noun):
    return f"{count} {noun}" if count == 1 else f"{count} {noun}s"


def quoted(text):
    """A std::string of libstdc++, as GDB writes text."""
    length = int(text["_M_string_length"])
    shown = min(length, SHOWN_LENGTH)
    data = text["_M_dataplus"]["_M_p"].lazy_string(length=shown)
    return data.value().format_string() + ("..." if shown < length else "")


def elements(vector):
    """First element and number of elements of a std::vector of libstdc++."""
    first = vector["_M_impl"]["_M_start"]
    return first, int(vector["_M_impl"]["_M_finish"] - first)


class VariantPrinter:
    """int 80"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        number = int(self.value["__type"])
        name = kind_name(number)
        if name == "string":
            return f"string {quoted(self.value['__text'])}"
        if not 0 <= number < len(KINDS) or KINDS[number][1] is None:
            return name
        return f"{name} {self.value['__number'][KINDS[number][1]].format_string()}"


class KeyValuePrinter:
    """ "brightness" = int 80"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return f"{quoted(self.value['__key'])} = {VariantPrinter(self.value['__value']).to_string()}"


class KeyValuesPrinter:
    """A record, as a map in the order of its entries."""

    def __init__(self, value):
        self.first, self.count = elements(value["__entries"])

    def to_string(self):
        return f"record of {self.count}"

    def children(self):
        for index in range(self.count):
            entry = self.first[index]
            yield f"key {index}", quoted(entry["__key"])
            yield f"value {index}", entry["__value"]

    @staticmethod
    def display_hint():
        return "map"


class SerializedDataPrinter:
    """The description block by block: how many times, and which kinds of which sizes."""

    def __init__(self, value):
        self.value = value
        self.info = value["__info"]
        self.count = 0
        if int(self.info) != 0:
            self.count = min(max(int(self.info["blockCount"]), 0), MAX_BLOCK_COUNT)

    def to_string(self):
        if int(self.value["__info"]) == 0:
            return "without a description"
        if int(self.value["__data"]) == 0:
            data = "no data"
        else:
            owner = "its own" if self.value["__ownsData"] else "lent"
            total = 0
            for block in range(self.count):
                times = max(int(self.info["repeatCount"][block]), 1)
                total += times * int(self.info["dataSize"][block])
            data = f"{counted(total, 'byte')} of data, {owner}"
        return f"{counted(int(self.info['blockCount']), 'block')}, {data}"

    def children(self):
        for block in range(self.count):
            described = int(self.info["typeCount"][block])
            types = []
            for entry in range(min(max(described, 0), SHOWN_TYPES)):
                name = kind_name(int(self.info["types"][block][entry]))
                types.append(f"{name}({int(self.info['typeSizes'][block][entry])})")
            if described > SHOWN_TYPES:
                types.append("...")
            size = int(self.info["dataSize"][block])
            times = int(self.info["repeatCount"][block])
            yield f"[{block}]", (
                f"{counted(described, 'value')} in {counted(size, 'byte')}, "
                f"{'once' if times < 1 else f'repeated {times} x'}: {' '.join(types)}"
            )


class ColorPrinter:
    """#ff8000 (hue 30.1176491, saturation 100, value 100)"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        rgb = int(self.value["__rgb32"]) & 0xFFFFFF
        hue, saturation, value = (
            self.value[field].format_string() for field in ("__hue", "__saturation", "__value")
        )
        return f"#{rgb:06x} (hue {hue}, saturation {saturation}, value {value})"


class PointPrinter:
    """(3, 4)"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return f"({self.value['x']}, {self.value['y']})"


class DimensionPrinter:
    """800 x 480"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return f"{self.value['width']} x {self.value['height']}"


class RectanglePrinter:
    """800 x 480 at (3, 4)"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        size = DimensionPrinter(self.value).to_string()
        return f"{size} at {PointPrinter(self.value).to_string()}"


def make_printers():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("oxil")
    for name, printer in (
        ("Variant", VariantPrinter),
        ("KeyValue", KeyValuePrinter),
        ("KeyValues", KeyValuesPrinter),
        ("SerializedData", SerializedDataPrinter),
        ("Color", ColorPrinter),
        ("Point", PointPrinter),
        ("Dimension", DimensionPrinter),
        ("Rectangle", RectanglePrinter),
    ):
        printers.add_printer(name, f"^oxil::{name}$", printer)
    return printers


# Loaded by hand there is no current object file, and they are everybody's.
gdb.printing.register_pretty_printer(gdb.current_objfile(), make_printers(), replace=True)
