# Printers with which gdb shows the records of zu.h. gdb loads the installed file with the library; `source
# zu_printers.py` does the same. They read the program's memory and call nothing in it, so they work on core files too.
import gdb
import gdb.printing


def shown(address, length):
    """Wide text at an address, of so many units, as a literal."""
    at_most = gdb.parameter("print elements") or length
    memory = gdb.selected_inferior().read_memory(int(address), 2 * min(length, at_most)) if length else b""
    text = bytes(memory).decode("utf-16-le", "surrogatepass")
    return 'u"%s"%s' % ("".join(map(escaped, text)), "..." if length > at_most else "")


def escaped(character):
    if character == '"':
        return '\\"'
    return character if character.isprintable() and character != "\\" else ascii(character)[1:-1]


def counted(number, what):
    return "%d %s%s" % (number, what, "" if number == 1 else "s")


def date(tm):
    fields = [int(tm["tm_" + name]) for name in ("year", "mon", "mday", "hour", "min", "sec")]
    return "%04d-%02d-%02d %02d:%02d:%02d" % (fields[0] + 1900, fields[1] + 1, *fields[2:])


def pointer_behind(link):
    """The pointer that follows the two pointers of a list's link."""
    return (link.cast(gdb.lookup_type("void").pointer().pointer()) + 2).dereference()


def links(head):
    """The links of a circular list, from the head's first to its last."""
    at = head["next"]
    while at != head.address:
        yield at
        at = at["next"]


class GrowableString:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        if not int(self.value):
            return 'u""'
        header = self.value.cast(gdb.lookup_type("int").pointer())
        try:
            capacity, length, holders = (int((header + i).dereference()) & 0xFFFFFFFF for i in (-3, -2, -1))
            if length > capacity:
                raise gdb.MemoryError
            text = shown(self.value, length)
        except gdb.MemoryError:
            return "%#x, which is no ZU_s" % int(self.value)
        shared = ", %d holders" % holders if 1 < holders < 1 << 31 else ""
        return "%s, %d of %s%s" % (text, length, counted(capacity, "unit"), shared)


class FixedString:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        length = int(self.value["length"])
        return "%s, %s" % (shown(self.value["text"], length), counted(length, "unit"))


class Array:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%s, room for %d" % (counted(int(self.value["count"]), "item"), int(self.value["capacity"]))

    def children(self):
        for i in range(int(self.value["count"])):
            yield "[%d]" % i, self.value["items"][i]

    def display_hint(self):
        return "array"


class HashTable:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%s in %s" % (counted(int(self.value["count"]), "item"),
                             counted(int(self.value["bucket_count"]), "bucket"))

    def children(self):
        number = 0
        for bucket in range(int(self.value["bucket_count"]) if int(self.value["count"]) else 0):
            for link in links(self.value["buckets"][bucket]):
                yield "[%d]" % number, pointer_behind(link)
                number += 1

    def display_hint(self):
        return "array"


class IntList:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "{%s}" % ", ".join(str(int(self.value["values"][i])) for i in range(int(self.value["count"])))


class Timer:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        end = self.value["end"]
        last = int(self.value["last"])
        text = "from " + date(self.value["start"])
        if int(end):
            text += " to " + date(end.dereference())
        text += ", last fired for %d" % last if last else ", not fired"
        for name in ("months", "days", "weekdays"):
            numbers = self.value["excluded_" + name]
            if int(numbers["count"]):
                text += ", not in %s %s" % (name, IntList(numbers).to_string())
        return text + (", not on holidays" if int(self.value["holidays"]) else "")


class TimerSet:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%s, scanned every %s, %s" % (
            counted(int(self.value["count"]), "timer"), counted(int(self.value["period"]), "second"),
            "running" if int(self.value["thread"]) else "not started")

    def children(self):
        # The record behind an entry's links: the timer, the user data and the callback.
        pointers = gdb.lookup_type("void").pointer().pointer()
        timer = gdb.lookup_type("ZU_timer").pointer()
        for number, link in enumerate(links(self.value["entries"])):
            entry = link.cast(pointers)
            yield "[%d].timer" % number, entry[2].cast(timer).dereference()
            yield "[%d].user_data" % number, entry[3]
            yield "[%d].callback" % number, entry[4]


class Printers(gdb.printing.PrettyPrinter):
    """Finds the printer of a value by the name of its type."""

    by_name = {"ZU_s": GrowableString, "ZU_fixed_s": FixedString, "ZU_DA": Array, "ZU_hash_table": HashTable,
               "ZU_int_list": IntList, "ZU_timer": Timer, "ZU_timer_set": TimerSet}

    def __call__(self, value):
        kind = value.type.unqualified()
        while kind.name not in self.by_name and kind.code == gdb.TYPE_CODE_TYPEDEF:
            kind = kind.target().unqualified()
        printer = self.by_name.get(kind.name)
        return printer(value) if printer else None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("zu"), replace=True)
