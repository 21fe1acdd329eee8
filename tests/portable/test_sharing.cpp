// Share modes between handles and processes: all pairs of access and share mode; deleting, moving and replacing.
#include "support/portable.h"

namespace {

using sharing = scratch_test;

// One of the sixteen ways to open a file: bits 0 and 1 are what it shares, bits 2 and 3 what it does with the data.
uint32_t flags_of(unsigned way) {
    return (way & 1 ? ZU_FILE_SHARE_READ : 0) | (way & 2 ? ZU_FILE_SHARE_WRITE : 0)
           | (way & 4 ? ZU_FILE_READ : 0) | (way & 8 ? ZU_FILE_WRITE : 0);
}

constexpr unsigned read_alone = 4, write_alone = 8, all_alone = 12, readers = 4 + 1;

bool go_together(unsigned first, unsigned second) {
    return first / 4 == 0 || second / 4 == 0 || ((first / 4 & ~second) == 0 && (second / 4 & ~first) == 0);
}

uint32_t open_code(unsigned way, uint32_t disposition = ZU_FILE_OPEN_EXISTING,
                   const char16_t* path = u"T:\\file") {
    ZU_file* const file = ZU_open_file(path, flags_of(way) | disposition, nullptr);
    const uint32_t code = code_of(file);
    ZU_close_file(file);
    return code;
}

// Has the file open until its parent ends it.
const part opens("opens", [](const words& arguments) {
    const auto way = static_cast<unsigned>(std::stoi(arguments[0]));
    ZU_file* const file = ZU_open_file(u"T:\\file", flags_of(way) | ZU_FILE_OPEN_EXISTING, nullptr);
    report(std::to_string(code_of(file)));
    wait_for_parent();
    ZU_close_file(file);
    return 0;
});

TEST_F(sharing, all_pairs_of_ways_to_open) {
    place.write("file", "data");
    for (unsigned first = 0; first < 16; ++first) {
        child other(opens, {std::to_string(first)});
        EXPECT_EQ(other.next_line(), "0");
        for (unsigned second = 0; second < 16; ++second)
            EXPECT_EQ(open_code(second), go_together(first, second) ? codes::none : codes::sharing_violation)
                << first << " + " << second << " in two processes";
        other.kill();
        ZU_file* const own = ZU_open_file(u"T:\\file", flags_of(first) | ZU_FILE_OPEN_EXISTING, nullptr);
        for (unsigned second = 0; second < 16; ++second)
            EXPECT_EQ(open_code(second), go_together(first, second) ? codes::none : codes::sharing_violation)
                << first << " + " << second << " in one process";
        ZU_close_file(own);
    }
}

TEST_F(sharing, a_refused_open_changes_nothing) {
    place.write("file", "data");
    child other(opens, {std::to_string(all_alone)});
    EXPECT_EQ(other.next_line(), "0");
    for (const uint32_t disposition : {ZU_FILE_CREATE_ALWAYS, ZU_FILE_OPEN_ALWAYS, ZU_FILE_TRUNCATE_EXISTING})
        EXPECT_EQ(open_code(write_alone, disposition), codes::sharing_violation);
    EXPECT_EQ(open_code(write_alone, ZU_FILE_CREATE_NEW), codes::file_exists);
    EXPECT_EQ(other.finish(), 0);
    EXPECT_EQ(place.read("file"), "data");
}

TEST_F(sharing, a_claim_ends_with_its_process_or_its_handle) {
    place.write("file", "data");
    child killed(opens, {std::to_string(read_alone)}), ends(opens, {std::to_string(0)});
    EXPECT_EQ(killed.next_line() + ends.next_line(), "00");
    EXPECT_EQ(open_code(readers), codes::sharing_violation);
    killed.kill();
    EXPECT_EQ(open_code(all_alone), codes::none);
    ZU_file* const own = ZU_open_file(u"T:\\file", flags_of(all_alone) | ZU_FILE_OPEN_EXISTING, nullptr);
    EXPECT_EQ(open_code(all_alone), codes::sharing_violation) << "within one process too";
    ZU_close_file(own);
    EXPECT_EQ(open_code(all_alone), codes::none);
}

TEST_F(sharing, an_open_file_is_not_deleted_moved_or_replaced) {
    for (unsigned way = 4; way < 16; ++way) {
        SCOPED_TRACE(way);
        place.write("file", "file");
        place.write("other", "other");
        child holder(opens, {std::to_string(way)});
        EXPECT_EQ(holder.next_line(), "0");
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\file", u"T:\\moved")), codes::sharing_violation);
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\other", u"T:\\file")), codes::access_denied);
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::sharing_violation);
        EXPECT_EQ(holder.finish(), 0);
        EXPECT_EQ(place.read("file"), "file");
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::none);
    }
}

} // namespace
