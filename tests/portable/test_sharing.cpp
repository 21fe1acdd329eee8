// Share modes between processes: what a file that another has open refuses, and that it stays as it was.
#include "support/portable.h"

namespace {

using sharing = scratch_test;

// A way to open a file: bits 0 and 1 are what it shares, bits 2 and 3 what it does with the data.
uint32_t flags_of(unsigned way) {
    return (way & 1 ? ZU_FILE_SHARE_READ : 0) | (way & 2 ? ZU_FILE_SHARE_WRITE : 0)
           | (way & 4 ? ZU_FILE_READ : 0) | (way & 8 ? ZU_FILE_WRITE : 0);
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

TEST_F(sharing, what_is_refused_to_others_changes_nothing) {
    const std::pair<uint32_t, uint32_t> ways_to_open[] = {
        {ZU_FILE_CREATE_ALWAYS, codes::sharing_violation},
        {ZU_FILE_OPEN_ALWAYS, codes::sharing_violation},
        {ZU_FILE_TRUNCATE_EXISTING, codes::sharing_violation},
        {ZU_FILE_CREATE_NEW, codes::file_exists}};
    for (unsigned way = 4; way < 16; ++way) {
        SCOPED_TRACE(way);
        place.write("file", "file");
        place.write("other", "other");
        child holder(opens, {std::to_string(way)});
        EXPECT_EQ(holder.next_line(), "0");
        for (const auto& [disposition, code] : ways_to_open)
            EXPECT_EQ(code_of(ZU_open_file(u"T:\\file", ZU_FILE_WRITE | disposition, nullptr)), code);
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\file", u"T:\\moved")), codes::sharing_violation);
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\other", u"T:\\file")), codes::access_denied);
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::sharing_violation);
        EXPECT_EQ(holder.finish(), 0);
        EXPECT_EQ(place.read("file"), "file");
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::none);
    }
}

} // namespace
