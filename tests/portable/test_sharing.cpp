// Writers in other processes, whose file is moved away and deleted between two lines.
#include "support/portable.h"

namespace {

using sharing = scratch_test;

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
