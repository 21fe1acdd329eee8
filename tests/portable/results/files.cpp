// Opening, sharing, transfers, attributes, moves and deletes, over everything that may stand there already.
#include <cerrno>
#include <cstdio>

#include "results.h"

namespace results {
namespace {

struct named_bits {
    const char* name;
    uint32_t bits;
};

constexpr named_bits accesses[] = {
    {"no access", 0}, {"R", ZU_FILE_READ}, {"W", ZU_FILE_WRITE}, {"RW", ZU_FILE_READ | ZU_FILE_WRITE}};
constexpr named_bits shares[] = {{" share none", 0},
                                 {" share R", ZU_FILE_SHARE_READ},
                                 {" share W", ZU_FILE_SHARE_WRITE},
                                 {" share RW", ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE}};
constexpr named_bits ways[] = {
    {" CREATE_ALWAYS", ZU_FILE_CREATE_ALWAYS},
    {" CREATE_NEW", ZU_FILE_CREATE_NEW},
    {" OPEN_ALWAYS", ZU_FILE_OPEN_ALWAYS},
    {" OPEN_EXISTING", ZU_FILE_OPEN_EXISTING},
    {" TRUNCATE_EXISTING", ZU_FILE_TRUNCATE_EXISTING},
    {" no way", 0},
    {" CREATE_NEW CREATE_ALWAYS", ZU_FILE_CREATE_NEW | ZU_FILE_CREATE_ALWAYS},
    {" TRUNCATE_EXISTING OPEN_EXISTING", ZU_FILE_TRUNCATE_EXISTING | ZU_FILE_OPEN_EXISTING}};

constexpr uint32_t R = FILE_ATTRIBUTE_READONLY, H = FILE_ATTRIBUTE_HIDDEN, S = FILE_ATTRIBUTE_SYSTEM;

enum class kind { none, file, directory, full_directory };

// A path, and what stands at "file" or "dir" of C:\here.
struct item {
    const char* name;
    const char16_t* path;
    kind what = kind::none;
    uint32_t attributes = 0;
};

constexpr item items[] = {
    {"missing", u"C:\\here\\new"},
    {"file", u"C:\\here\\file", kind::file},
    {"read-only file", u"C:\\here\\file", kind::file, R},
    {"hidden file", u"C:\\here\\file", kind::file, H},
    {"system file", u"C:\\here\\file", kind::file, S},
    {"hidden system file", u"C:\\here\\file", kind::file, H | S},
    {"read-only hidden file", u"C:\\here\\file", kind::file, R | H},
    {"file in other case", u"C:\\here\\FILE", kind::file},
    {"directory", u"C:\\here\\dir", kind::directory},
    {"read-only directory", u"C:\\here\\dir", kind::directory, R},
    {"hidden directory", u"C:\\here\\dir", kind::directory, H},
    {"full directory", u"C:\\here\\dir", kind::full_directory},
    {"full read-only directory", u"C:\\here\\dir", kind::full_directory, R},
    {"directory\\", u"C:\\here\\dir\\", kind::directory},
    {"file\\", u"C:\\here\\file\\", kind::file},
    {"missing\\", u"C:\\here\\new\\"},
    {"no parent", u"C:\\here\\no\\new"},
    {"through a file", u"C:\\here\\file\\new", kind::file},
    {"star", u"C:\\here\\n*w"},
    {"slash", u"C:/here/new"},
    {"long form with ..", u"\\\\?\\C:\\here\\..\\new"},
    {"empty text", u""},
    {"missing drive", u"Q:\\new"},
    {"root", u"C:\\"},
};

const ZU_wchar* const other = u"C:\\here\\other";

void clear_away() {
    for (const ZU_wchar* path : {u"C:\\here\\file", u"C:\\here\\dir", u"C:\\here\\new", other})
        if (const uint32_t bits = ZU_get_file_platform_attributes(path); bits != INVALID_FILE_ATTRIBUTES) {
            ZU_set_file_platform_attributes(path, FILE_ATTRIBUTE_NORMAL);
            bits& FILE_ATTRIBUTE_DIRECTORY ? ZU_delete_dir_recursive(path) : ZU_delete_file(path);
        }
}

void make(kind what, const ZU_wchar* path, uint32_t attributes = 0) {
    uint32_t written = 0;
    if (what == kind::none)
        return;
    if (what == kind::file) {
        ZU_file* const file = ZU_open_file(path, ZU_FILE_CREATE_NEW | ZU_FILE_WRITE, nullptr);
        ZU_write_file(file, "data", 4, &written);
        ZU_close_file(file);
    } else {
        ZU_create_dir(path, nullptr);
        if (what == kind::full_directory)
            make(kind::file, (std::u16string(path) + u"\\inside").c_str());
    }
    if (attributes != 0)
        ZU_set_file_platform_attributes(path, attributes);
}

void make(const item& one) {
    clear_away();
    make(one.what, one.what == kind::file ? u"C:\\here\\file" : u"C:\\here\\dir", one.attributes);
}

// The bits that new files do not differ in, and the size.
std::string state(const ZU_wchar* path) {
    ZU_stat record;
    const uint32_t bits = ZU_get_file_platform_attributes(path);
    if (bits == INVALID_FILE_ATTRIBUTES || ZU_stat64(path, &record) != 0)
        return ", then gone";
    return ", then " + hex(bits & (R | H | S | FILE_ATTRIBUTE_DIRECTORY)) + " size "
           + std::to_string(record.st_size);
}

ZU_bool opened(const ZU_wchar* path, uint32_t flags) {
    ZU_file* const file = ZU_open_file(path, flags, nullptr);
    const uint32_t left = GetLastError();
    ZU_close_file(file);
    SetLastError(left);
    return file != nullptr;
}

// Adds the line of a call and of what then stands at the path.
template <typename Call>
void note_change(const std::string& what, const ZU_wchar* path, Call call) {
    preset_code();
    const std::string result = show(call());
    const std::string left = code();
    add(what, result + ' ' + left + state(path));
}

void opens() {
    for (const item& one : items)
        for (const named_bits& access : accesses)
            for (const named_bits& way : ways) {
                make(one);
                note_change(std::string("open ") + one.name + " for " + access.name + way.name, one.path,
                            [&] { return opened(one.path, access.bits | way.bits); });
            }
}

void sharing() {
    const ZU_wchar* const path = items[1].path;
    for (const named_bits& access : accesses)
        for (const named_bits& share : shares) {
            make(items[1]);
            ZU_file* const first =
                ZU_open_file(path, access.bits | share.bits | ZU_FILE_OPEN_EXISTING, nullptr);
            const std::string held = std::string("held for ") + access.name + share.name;
            for (const named_bits& second : accesses)
                for (const named_bits& second_share : shares)
                    note(held + ", open for " + second.name + second_share.name, [&] {
                        return opened(path, second.bits | second_share.bits | ZU_FILE_OPEN_EXISTING);
                    });
            for (const named_bits& way : ways)
                note_change(held + ", open for W share RW" + way.name, path,
                            [&] { return opened(path, ZU_FILE_WRITE | shares[3].bits | way.bits); });
            FILE* const stream = ZU_fopen(path, u"r");
            add(held + ", fopen", show(static_cast<const void*>(stream)));
            if (stream)
                ZU_fclose(stream);
            RESULT(held, ZU_set_file_platform_attributes(path, H));
            RESULT(held, ZU_set_file_time(path, -1, 1000000000, -1));
            make(kind::file, other);
            RESULT(held, ZU_move_file(other, path));
            ZU_delete_file(other);
            RESULT(held, ZU_move_file(path, other));
            RESULT(held, ZU_delete_file(path));
            ZU_close_file(first);
            // A handle that has emptied the file without access for writing is no writer afterwards.
            make(items[1]);
            ZU_file* const emptied =
                ZU_open_file(path, access.bits | share.bits | ZU_FILE_CREATE_ALWAYS, nullptr);
            for (const named_bits& second : accesses)
                note(held + ", emptied, open for " + second.name + " share R",
                     [&] { return opened(path, second.bits | ZU_FILE_SHARE_READ | ZU_FILE_OPEN_EXISTING); });
            ZU_close_file(emptied);
        }
}

void moves_and_deletes() {
    for (const item& one : items) {
        for (const item& to : items) {
            if (to.what == kind::none && to.path != items[0].path)
                continue;
            make(one);
            make(to.what, other, to.attributes);
            note_change(std::string("move ") + one.name + " to " + to.name, other,
                        [&] { return ZU_move_file(one.path, other); });
        }
        const auto change = [&](const char* name, auto call) {
            make(one);
            note_change(std::string(name) + one.name, one.path, [&] { return call(one.path); });
        };
        change("delete file ", ZU_delete_file);
        change("delete dir ", ZU_delete_dir);
        if (one.path != items[std::size(items) - 1].path)
            change("delete all of ", ZU_delete_dir_recursive);
        change("create dir ", [](const ZU_wchar* path) { return ZU_create_dir(path, nullptr); });
        make(one);
        make(kind::file, other);
        note_change(std::string("move a file to ") + one.name, one.path,
                    [&] { return ZU_move_file(other, one.path); });
        if (one.path == items[7].path)
            RESULT("a file moved to it", ZU_get_actual_file_name(one.path));
    }
    const std::pair<item, const ZU_wchar*> ways_to_itself[] = {{items[1], items[1].path},
                                                               {items[1], items[7].path},
                                                               {items[8], items[8].path},
                                                               {items[11], u"C:\\here\\dir\\in"}};
    for (const auto& way : ways_to_itself) {
        make(way.first);
        const std::string to = show(std::u16string_view(way.second));
        note_change(std::string("move ") + way.first.name + " to " + to, way.first.path,
                    [&] { return ZU_move_file(way.first.path, way.second); });
        RESULT(to, ZU_get_actual_file_name(way.second));
    }
}

void attributes() {
    for (const item& one : {items[1], items[8]})
        for (const uint32_t bits :
             {0x0u,   0x1u,   0x2u,   0x3u,   0x4u,   0x5u,    0x6u,    0x7u,    0x8u,  0x10u,
              0x20u,  0x21u,  0x22u,  0x24u,  0x26u,  0x27u,   0x40u,   0x80u,   0x81u, 0x82u,
              0x100u, 0x102u, 0x200u, 0x400u, 0x800u, 0x2000u, 0x4000u, 0x10000u}) {
            make(one);
            const std::string name = std::string("attributes ") + hex(bits) + " of a " + one.name;
            RESULT(name, ZU_set_file_platform_attributes(one.path, bits));
            RESULT(name, hex(ZU_get_file_platform_attributes(one.path)));
            ZU_enum_dir* const walk = ZU_enum_dir_begin(u"C:\\here", ZU_ENUM_DIR_SKIP_DOTS);
            add("listed, " + name, hex(ZU_enum_dir_get(walk)->find_data->dwFileAttributes) + " -");
            ZU_enum_dir_end(walk);
        }
}

void transfers() {
    for (const named_bits& access : accesses) {
        make(items[1]);
        ZU_file* const file = ZU_open_file(items[1].path, access.bits | ZU_FILE_OPEN_EXISTING, nullptr);
        const std::string open = std::string("opened for ") + access.name;
        char bytes[16] = {};
        uint32_t done = 77;
        uint64_t position = 77;
        for (const uint32_t count : {0u, 2u, 16u}) {
            const std::string name = open + ' ' + show(count);
            RESULT(name, both(ZU_read_file(file, bytes, count, &done), &done));
            RESULT(name, both(ZU_write_file(file, bytes, count, &done), &done));
            const ZU_file_vec pieces[] = {{reinterpret_cast<const uint8_t*>(bytes), count}, {nullptr, 0}};
            RESULT(name, both(ZU_write_file_v(file, pieces, 2, &done), &done));
            ZU_seek_file(file, 0, nullptr, ZU_SEEK_END);
            RESULT(name + " at the end", both(ZU_read_file(file, bytes, count, &done), &done));
        }
        for (const int64_t offset :
             {int64_t{0}, int64_t{-1}, int64_t{5000}, int64_t{-5000}, INT64_MAX, INT64_MIN})
            for (const uint32_t origin : {0u, 1u, 2u, 3u, 0xFFFFFFFFu}) {
                const std::string name = open + " seek " + std::to_string(offset) + " from " + show(origin);
                ZU_seek_file(file, 2, nullptr, ZU_SEEK_BEGIN);
                RESULT(name, ZU_seek_file(file, offset, &position, origin));
                add(name + ": position", std::to_string(position));
                RESULT(name, ZU_tell_file(file, &position));
            }
        RESULT(open, both(ZU_read_file(file, nullptr, 1, &done), &done));
        RESULT(open, both(ZU_write_file(file, nullptr, 1, &done), &done));
        ZU_seek_file(file, 10000, nullptr, ZU_SEEK_BEGIN);
        RESULT(open, ZU_set_end_of_file(file));
        RESULT(open, ZU_flush_file(file));
        ZU_close_file(file);
        add(open + ": size", state(items[1].path));
    }
}

// Writes two bytes to each stream that opens.
void streams() {
    const auto open = [](const item& one, const ZU_wchar* mode) {
        make(one);
        FILE* const stream = ZU_fopen(one.path, mode);
        const std::string result =
            stream ? "some, written " + show(std::fputs("xy", stream) >= 0) : "null " + show(errno);
        if (stream)
            ZU_fclose(stream);
        add("fopen " + show(std::u16string_view(mode)) + ' ' + one.name, result + state(one.path));
    };
    for (const item& one : items)
        for (const ZU_wchar* mode : {u"r", u"w"})
            open(one, mode);
    for (const item& one : {items[0], items[1]})
        for (const ZU_wchar* mode : {u"a", u"r+", u"w+b", u"a+b", u"w+t", u"wc", u"rt", u"rcnSRTN", u"x", u"",
                                     u"q", u"+r", u"rw", u"rbS", u"rD", u"rx", u"wx", u"ax"})
            open(one, mode);
    open({"device", u"NUL"}, u"w");
}

} // namespace

void files() {
    for (const auto group : {opens, sharing, moves_and_deletes, attributes, transfers, streams})
        group();
    clear_away();
}

} // namespace results
