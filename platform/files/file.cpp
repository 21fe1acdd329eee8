// Open files: reading, writing and seeking.
#include "platform/files/file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/api/files.h"
#include "platform/api/text.h"
#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/core/signals.h"

namespace platform {

namespace {

constexpr size_t block_capacity = 64 * 1024;

bool is_stream(mode_t mode) {
    return S_ISFIFO(mode) || S_ISCHR(mode) || S_ISSOCK(mode);
}

// EAGAIN: there is nothing to read yet, and the descriptor does not wait, as for another user's pipe.
DWORD code_of_read(int error) {
    return error == EAGAIN ? DWORD{ERROR_NO_DATA} : code_of_errno(error);
}

} // namespace

file::file(opened_file&& opened, const open_request& request)
    : object(kind), number_(std::move(opened.number)), reads_(request.reads), writes_(request.writes),
      writes_attributes_(request.writes_attributes), has_claim_(opened.has_claim),
      keeps_writers_away_(opened.has_claim && request.denies_writes), mode_(opened.status.st_mode),
      opener_(GetCurrentProcessId()), size_(static_cast<uint64_t>(opened.status.st_size)) {}

DWORD file::close() {
    // A forked child shares the locks with its parent, and must leave them alone.
    if (has_claim_ && opener_ == GetCurrentProcessId())
        give_back_claim(number_.get());
    // A network file system tells now what it could not write.
    if (::close(number_.release()) != 0 && errno != EINTR)
        return code_of_errno(errno);
    return ERROR_SUCCESS;
}

// ---- Reading ---------------------------------------------------------------------------------------------------

size_t file::take_line_ahead(char* out, size_t most) {
    if (!block_holds(most))
        return 0;
    const auto offset = static_cast<size_t>(position_ - block_start_);
    const char* start = block_.get() + offset;
    const void* end = std::memchr(start, '\n', most);
    const size_t searched = end ? static_cast<size_t>(static_cast<const char*>(end) - start) : most;
    if (may_hold_zero(offset + searched))
        if (const void* zero = std::memchr(start, 0, searched))
            end = zero;
    if (!end)
        return 0;
    const size_t size = static_cast<size_t>(static_cast<const char*>(end) - start) + 1;
    std::memcpy(out, start, size);
    // What is left behind is the state of a read of all these bytes and a seek back to the end of the line.
    latest_start_ = position_;
    latest_end_ = position_ + most;
    position_ += size;
    return size;
}

// Whether a zero byte is in the block before an offset. The block is searched once: text has none, and a search in each
// line would cost more.
bool file::may_hold_zero(size_t end) {
    if (end <= without_zero_)
        return false;
    const void* zero = std::memchr(block_.get() + without_zero_, 0, block_size_ - without_zero_);
    without_zero_ = zero ? static_cast<size_t>(static_cast<const char*>(zero) - block_.get()) : block_size_;
    return end > without_zero_;
}

DWORD file::read(char* out, size_t count, size_t& done) {
    if (!is_stream(mode_))
        return read_regular(out, count, done);
    const ssize_t size = retried([&] { return ::read(number_.get(), out, count); });
    if (size < 0)
        return code_of_read(errno);
    done = static_cast<size_t>(size);
    return ERROR_SUCCESS;
}

// Reads until the count is met or the file ends. Behind the end of the block it reads from the file itself: so bytes
// that others append are seen, and no record is cut in two.
DWORD file::read_regular(char* out, size_t count, size_t& done) {
    const uint64_t start = position_;
    DWORD code = ERROR_SUCCESS;
    while (done < count) {
        size_t size = take_from_block(out + done, count - done);
        if (size == 0 && keeps_writers_away_ && count - done < block_capacity / 2 && is_sequential()) {
            if (!fill_block())
                code = code_of_errno(errno);
            size = take_from_block(out + done, count - done);
        } else if (size == 0) {
            const ssize_t read = read_at(out + done, count - done);
            if (read < 0)
                code = code_of_read(errno);
            size = read > 0 ? static_cast<size_t>(read) : 0;
        }
        position_ += size;
        done += size;
        if (size == 0)
            break;
    }
    if (code != ERROR_SUCCESS) {
        position_ = start;
        done = 0;
    }
    latest_start_ = start;
    latest_end_ = position_;
    return code;
}

ssize_t file::read_at(char* out, size_t count) const {
    // The host refuses a range that ends beyond the largest position. No file has bytes there.
    count = static_cast<size_t>(std::min<uint64_t>(count, INT64_MAX - position_));
    return retried([&] { return pread(number_.get(), out, count, static_cast<off_t>(position_)); });
}

size_t file::take_from_block(char* out, size_t count) {
    if (position_ < block_start_ || position_ - block_start_ >= block_size_)
        return 0;
    const auto offset = static_cast<size_t>(position_ - block_start_);
    const size_t size = std::min(count, block_size_ - offset);
    std::memcpy(out, block_.get() + offset, size);
    return size;
}

// Whether the position is where the latest read ended, or in it: a line reader reads a
// piece, takes a line from it, and seeks back to the end of that line.
bool file::is_sequential() const {
    return position_ >= latest_start_ && position_ <= latest_end_;
}

// Reads a block ahead, which is right only while no other handle may write. False, with errno, on failure.
bool file::fill_block() {
    drop_block();
    if (!block_)
        block_.reset(new (std::nothrow) char[block_capacity]);
    if (!block_) {
        errno = ENOMEM;
        return false;
    }
    const ssize_t read = read_at(block_.get(), block_capacity);
    if (read < 0)
        return false;
    block_start_ = position_;
    block_size_ = static_cast<size_t>(read);
    without_zero_ = 0;
    return true;
}

// ---- Writing ---------------------------------------------------------------------------------------------------

DWORD file::write(const char* data, size_t count) {
    if (!is_stream(mode_))
        return write_regular(data, count);
    const quiet_pipes no_signal;
    for (size_t done = 0; done < count;) {
        const ssize_t size = retried([&] { return ::write(number_.get(), data + done, count - done); });
        if (size < 0)
            return code_of_errno(errno);
        done += static_cast<size_t>(size);
    }
    return ERROR_SUCCESS;
}

DWORD file::write_regular(const char* data, size_t count) {
    drop_block();
    size_t done = 0;
    while (done < count) {
        const uint64_t at = position_ + done;
        const auto call = [&] {
            return retried(
                [&] { return pwrite(number_.get(), data + done, count - done, static_cast<off_t>(at)); });
        };
        // Only a write that begins at the limit raises the signal; one that crosses it is cut short.
        const ssize_t size = at >= size_limit() ? without_signal(SIGXFSZ, call) : call();
        if (size < 0) {
            const int error = errno;
            cut_back(at);
            return code_of_errno(error);
        }
        done += static_cast<size_t>(size);
    }
    position_ += count;
    size_ = std::max(size_, position_);
    return ERROR_SUCCESS;
}

// Cuts off what a write had appended before it failed. The bytes stay when other handles may write, since those may have
// seen them, and when a program without the library has appended more.
void file::cut_back(uint64_t written_to) {
    struct stat now;
    if (keeps_writers_away_ && written_to > size_ && fstat(number_.get(), &now) == 0
        && static_cast<uint64_t>(now.st_size) == written_to)
        retried([&] { return ftruncate(number_.get(), static_cast<off_t>(size_)); });
}

// The limit is read once per handle, since that costs a system call.
uint64_t file::size_limit() {
    if (size_limit_ == not_asked) {
        rlimit limit;
        const bool limited = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
        size_limit_ = limited ? limit.rlim_cur : UINT64_MAX;
    }
    return size_limit_;
}

DWORD file::set_end() {
    drop_block();
    const auto call = [&] {
        return retried([&] { return ftruncate(number_.get(), static_cast<off_t>(position_)); });
    };
    if ((position_ > size_limit() ? without_signal(SIGXFSZ, call) : call()) != 0)
        return code_of_errno(errno);
    size_ = position_;
    return ERROR_SUCCESS;
}

DWORD file::flush() {
    drop_block();
    return retried([&] { return fsync(number_.get()); }) == 0 ? ERROR_SUCCESS : code_of_errno(errno);
}

// ---- Seeking ---------------------------------------------------------------------------------------------------

// Where the file ends; -1 with errno. A status asks a server for the size, which lseek would not do on every file system
// of a network; yet for block devices only lseek tells it.
int64_t file::end() const {
    if (S_ISBLK(mode_))
        return lseek(number_.get(), 0, SEEK_END);
    struct stat now;
    return fstat(number_.get(), &now) == 0 ? now.st_size : -1;
}

DWORD file::seek(int64_t distance, DWORD origin, int64_t& position) {
    int64_t base = 0;
    if (origin == FILE_CURRENT) {
        base = static_cast<int64_t>(position_);
    } else if (origin == FILE_END) {
        base = end();
        if (base < 0)
            return code_of_errno(errno);
        size_ = static_cast<uint64_t>(base);
    } else if (origin != FILE_BEGIN) {
        return ERROR_INVALID_PARAMETER;
    }
    if (S_ISFIFO(mode_) || S_ISSOCK(mode_))
        return ERROR_SEEK_ON_DEVICE;
    if (__builtin_add_overflow(base, distance, &position) || position < 0)
        return ERROR_NEGATIVE_SEEK;
    position_ = static_cast<uint64_t>(position);
    return ERROR_SUCCESS;
}

DWORD file::go_to_known_end(int64_t& position) {
    if (!keeps_writers_away_)
        return seek(0, FILE_END, position);
    position_ = size_;
    position = static_cast<int64_t>(size_);
    return ERROR_SUCCESS;
}

// ---- The calls -------------------------------------------------------------------------------------------------

BOOL ReadFile(HANDLE handle, void* out, DWORD bytes, DWORD* bytes_done, void* overlapped) {
    if (bytes_done)
        *bytes_done = 0;
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    if (overlapped)
        return result_of(ERROR_INVALID_PARAMETER);
    if (out && bytes > 0 && opened->take_ahead(out, bytes)) {
        if (bytes_done)
            *bytes_done = bytes;
        return TRUE;
    }
    if (opened->is_directory())
        return result_of(ERROR_INVALID_FUNCTION);
    if (!opened->reads())
        return result_of(ERROR_ACCESS_DENIED);
    if (!out && bytes > 0)
        return result_of(ERROR_NOACCESS);
    size_t done = 0;
    const DWORD code = bytes > 0 ? opened->read(static_cast<char*>(out), bytes, done) : ERROR_SUCCESS;
    if (bytes_done)
        *bytes_done = static_cast<DWORD>(done);
    return result_of(code);
}

DWORD take_line_ahead(HANDLE handle, void* out, DWORD most) {
    file* opened = object_of<file>(handle);
    return opened ? static_cast<DWORD>(opened->take_line_ahead(static_cast<char*>(out), most)) : 0;
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD bytes, DWORD* bytes_done, void* overlapped) {
    if (bytes_done)
        *bytes_done = 0;
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    if (overlapped)
        return result_of(ERROR_INVALID_PARAMETER);
    if (!opened->writes())
        return result_of(ERROR_ACCESS_DENIED);
    if (!data && bytes > 0)
        return result_of(ERROR_NOACCESS);
    const DWORD code = bytes > 0 ? opened->write(static_cast<const char*>(data), bytes) : ERROR_SUCCESS;
    if (bytes_done && code == ERROR_SUCCESS)
        *bytes_done = bytes;
    return result_of(code);
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* new_position, DWORD origin) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    int64_t position = 0;
    const DWORD code = opened->seek(distance.QuadPart, origin, position);
    if (code == ERROR_SUCCESS && new_position)
        new_position->QuadPart = position;
    return result_of(code);
}

BOOL go_to_known_end(HANDLE handle, LARGE_INTEGER* end) {
    file* opened = object_of<file>(handle);
    return opened && result_of(opened->go_to_known_end(end->QuadPart));
}

BOOL SetEndOfFile(HANDLE handle) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    return result_of(opened->writes() ? opened->set_end() : ERROR_ACCESS_DENIED);
}

BOOL FlushFileBuffers(HANDLE handle) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    return result_of(opened->writes() ? opened->flush() : ERROR_ACCESS_DENIED);
}

BOOL GetFileSizeEx(HANDLE handle, LARGE_INTEGER* size) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    struct stat now;
    if (fstat(opened->number(), &now) != 0)
        return result_of(code_of_errno(errno));
    size->QuadPart = S_ISDIR(now.st_mode) ? 0 : now.st_size;
    return TRUE;
}

} // namespace platform
