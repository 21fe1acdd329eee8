// Share modes between processes: what a file that another has open refuses, and that it stays as it was; writers whose
// file is moved away.
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

// Opens the file, appends a line and closes it, over and over. Its result is how many lines it was told are written.
const part appends("appends", [](const words&) {
    int lines = 0;
    for (int i = 0; i < 1000; ++i) {
        ZU_file* const file =
            ZU_open_file(u"T:\\file", ZU_FILE_WRITE | ZU_FILE_SHARE_READ | ZU_FILE_OPEN_ALWAYS, nullptr);
        uint32_t done = 0;
        if (file && ZU_seek_file(file, 0, nullptr, ZU_SEEK_END) && ZU_write_file(file, "line\n", 5, &done))
            ++lines;
        ZU_close_file(file);
    }
    report(std::to_string(lines));
    return 0;
});

// A line that was reported as written is in one of the files that are left or were moved away.
TEST_F(sharing, no_line_goes_to_a_file_that_is_gone) {
    child writers[] = {child(appends), child(appends), child(appends)};
    std::atomic<bool> over{false};
    size_t kept = 0, written = 0;
    std::thread moves([&] {
        for (bool last = false; !last;) {
            last = over;
            if (!ZU_move_file(u"T:\\file", u"T:\\away"))
                continue;
            kept += place.read("away").size();
            // A writer that had it open already is about to find out that it was moved.
            while (!ZU_delete_file(u"T:\\away"))
                ASSERT_EQ(GetLastError(), codes::sharing_violation);
        }
    });
    for (child& writer : writers)
        written += 5 * std::stoul(writer.next_line());
    over = true;
    moves.join();
    EXPECT_GT(written, 0u);
    EXPECT_EQ(kept, written);
}

} // namespace
