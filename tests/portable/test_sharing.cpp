// Files that other processes have open: killed openers, and writers that lose their file. What goes together is in
// results/files.cpp.
#include "support/portable.h"

namespace {

using sharing = scratch_test;

// A way to open: bits 0 and 1 are what is done with the data, bits 2 and 3 what others may do meanwhile.
constexpr uint32_t all_alone = ZU_FILE_READ | ZU_FILE_WRITE;

ZU_file* opened(uint32_t way) {
    return ZU_open_file(u"T:\\file", ZU_FILE_OPEN_EXISTING | way % 4 | way / 4 * ZU_FILE_SHARE_READ, nullptr);
}

uint32_t opening_code(uint32_t way) {
    ZU_file* const file = opened(way);
    const uint32_t code = code_of(file != nullptr);
    ZU_close_file(file);
    return code;
}

// Has the file open in that way until it is killed or told to end.
const part keeps_open("keeps", [](const words& way) {
    const ZU_file* const file = opened(static_cast<uint32_t>(std::stoul(way[0])));
    report(file ? "open" : "failed");
    wait_for_parent();
    return 0;
});

TEST_F(sharing, end_of_a_claim) {
    place.write("file", "data");
    child owner(keeps_open, {std::to_string(all_alone)});
    ASSERT_EQ(owner.next_line(), "open");
    EXPECT_EQ(opening_code(all_alone), codes::sharing_violation);
    EXPECT_EQ(ZU_fopen(u"T:\\file", u"r"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::sharing_violation);
    EXPECT_EQ(code_of(ZU_move_file(u"T:\\file", u"T:\\moved")), codes::sharing_violation);
    owner.kill();
    EXPECT_EQ(opening_code(all_alone), codes::none);
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
        written += 5 * std::strtoul(writer.next_line().c_str(), nullptr, 10);
    over = true;
    moves.join();
    for (child& writer : writers)
        EXPECT_EQ(writer.finish(), 0);
    EXPECT_GT(written, 0u);
    EXPECT_EQ(kept, written);
}

} // namespace
