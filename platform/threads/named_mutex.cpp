// Mutexes: the object that a process has for each, its owner, and the waits.
#include <pthread.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string_view>
#include <vector>

#include "platform/access/access_list.h"
#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/thread_end.h"
#include "platform/core/waitable.h"
#include "platform/threads/fork_lock.h"
#include "platform/threads/mutex_file.h"
#include "platform/threads/named_mutex.h"
#include "platform/threads/thread_serial.h"

namespace platform {

namespace {

constexpr size_t longest_name = 260;
constexpr DWORD longest_end_ms =
    1000; // the end of the process waits no longer for the files of all its locks

// The one object that all handles of a mutex in this process share. Threads of the process exclude each other by the
// gate; the thread that has passed it competes with other processes for the file.
struct shared_mutex {
    struct gate_event : waitable {
        static constexpr object_kind kind{};
        gate_event() : waitable(kind, when_taken::counts_down, 1) {}
    };

    ~shared_mutex() { gate->release(); }

    std::u16string name; // empty: of this process alone
    mutex_file file;
    int users = 0; // handles and running waits; guarded by the lock of the list of mutexes
    gate_event* gate = new gate_event;
    std::atomic<uintptr_t> owner{0};
    uint32_t depth = 0;     // how many times the owner has taken it
    bool abandoned = false; // used where there is no file; guarded by the gate
};

using shared_pointer = std::shared_ptr<shared_mutex>;

// This lock, the next one and the list are never destroyed: threads may still end at the very end of the process.
std::mutex& list_lock() {
    static std::mutex* const lock = new std::mutex;
    return *lock;
}

// Held while a mutex's file is opened or closed, which may take a moment, so that the lock of the list need not be.
// Calls share it. A fork takes it alone, so that no child gets a file that is half open. It is taken before the lock of
// the list.
fork_lock& files_lock() {
    static fork_lock* const lock = new fork_lock;
    return *lock;
}

std::map<std::u16string, shared_pointer>& mutexes_by_name() {
    static auto* const list = new std::map<std::u16string, shared_pointer>;
    return *list;
}

// The last user of a mutex closes its file. A running call counts as a user, since another thread may close the handle.
void leave(shared_mutex& mutex) {
    {
        const std::lock_guard<std::mutex> held(list_lock());
        if (mutex.users > 1 || mutex.name.empty()) {
            --mutex.users;
            return;
        }
    }
    const std::shared_lock<fork_lock> closing(files_lock());
    {
        const std::lock_guard<std::mutex> held(list_lock());
        if (--mutex.users > 0)
            return;
        mutexes_by_name().erase(mutex.name);
    }
    mutex.file.close();
}

// The mutexes that this thread owns, so that its end abandons them.
using owned_list = std::vector<shared_pointer>;

void abandon_all(void* ending) {
    auto* owned = static_cast<owned_list*>(ending);
    for (const shared_pointer& one : *owned) {
        const std::lock_guard<std::mutex> held(list_lock());
        one->owner.store(0, std::memory_order_relaxed);
        one->abandoned = one->name.empty();
        if (!one->name.empty() && one->users > 0)
            one->file.abandon();
        one->gate->set();
    }
    delete owned;
}

owned_list* owned_by_this_thread() {
    static const pthread_key_t key = key_for_thread_end(abandon_all);
    auto* owned = static_cast<owned_list*>(pthread_getspecific(key));
    if (owned)
        return owned;
    owned = new (std::nothrow) owned_list;
    if (owned && pthread_setspecific(key, owned) == 0)
        return owned;
    delete owned;
    return nullptr;
}

// A guarded object, whose lock is that of the list: `close` takes it.
struct mutex_handle : object {
    static constexpr object_kind kind{};
    mutex_handle(shared_pointer of, DWORD rights) : object(kind), mutex(std::move(of)), access(rights) {}

    DWORD close() override {
        leave(*mutex);
        return ERROR_SUCCESS;
    }

    // A wait for several objects cannot take a lock that lives in the kernel together with the others.
    waitable* as_waitable() override {
        return fail<waitable*>(access & SYNCHRONIZE ? ERROR_NOT_SUPPORTED : ERROR_ACCESS_DENIED);
    }

    const shared_pointer mutex;
    const DWORD access;
};

// The files that killed processes left behind are swept once in the life of a process.
constinit std::atomic<bool> has_swept{false};

// A forked child is a process of its own: it owns no named mutex, whatever its parent does, and none of the threads
// that may have been at the gate exists in it.
void start_as_child() {
    has_swept.store(false, std::memory_order_relaxed);
    for (const auto& [name, mutex] : mutexes_by_name()) {
        mutex->owner.store(0, std::memory_order_relaxed);
        mutex->depth = 0;
        mutex->gate = new shared_mutex::gate_event; // the old one may be in use for ever
        mutex->file.reopen(name);
    }
    if (owned_list* const owned = owned_by_this_thread())
        std::erase_if(*owned, [](const shared_pointer& one) { return !one->name.empty(); });
    list_lock().unlock();
    files_lock().start_anew();
}

void lock_for_fork() {
    files_lock().lock();
    list_lock().lock();
}

void unlock_in_parent() {
    list_lock().unlock();
    files_lock().unlock();
}

[[maybe_unused]] const int fork_handlers = pthread_atfork(lock_for_fork, unlock_in_parent, start_as_child);

// A process that ends without closing its locks leaves no file behind. The file of a lock that another thread owns
// stays, since that thread runs until the process has ended.
[[gnu::destructor]] void remove_names() {
    std::vector<shared_pointer> mutexes;
    {
        const std::lock_guard<std::mutex> held(list_lock());
        for (const auto& [name, mutex] : mutexes_by_name())
            mutexes.push_back(mutex);
    }
    const deadline limit(longest_end_ms);
    for (const shared_pointer& one : mutexes) {
        const uintptr_t owner = one->owner.load(std::memory_order_relaxed);
        if (owner == 0 || owner == thread_serial())
            one->file.remove_name(limit);
    }
}

// A call that uses the mutex of a handle.
class running_call {
public:
    explicit running_call(HANDLE handle) {
        const std::lock_guard<std::mutex> held(list_lock());
        if (const auto* const found = static_cast<mutex_handle*>(guarded_object_of(handle))) {
            mutex = found->mutex;
            access = found->access;
            ++mutex->users;
        }
    }
    ~running_call() {
        if (mutex)
            leave(*mutex);
    }
    running_call(const running_call&) = delete;
    running_call& operator=(const running_call&) = delete;

    shared_pointer mutex; // null: the handle is not that of a mutex
    DWORD access = 0;
};

// Adds a mutex to those that its thread owns, and drops those that were closed while they were owned.
void add_owned(owned_list& owned, const shared_pointer& mutex) {
    if (!owned.empty()) {
        const std::lock_guard<std::mutex> held(list_lock());
        std::erase_if(owned, [](const shared_pointer& one) { return one->users == 0; });
    }
    owned.push_back(mutex);
}

} // namespace

DWORD wait_for_mutex(HANDLE handle, DWORD milliseconds) {
    const running_call call(handle);
    shared_mutex* const mutex = call.mutex.get();
    if (!mutex || !(call.access & SYNCHRONIZE))
        return fail<DWORD>(mutex ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE, WAIT_FAILED);
    const uintptr_t self = thread_serial();
    // Relaxed: only this thread ever writes its own number here.
    if (mutex->owner.load(std::memory_order_relaxed) == self) {
        ++mutex->depth;
        return WAIT_OBJECT_0;
    }
    owned_list* const owned = owned_by_this_thread();
    if (!owned)
        return fail<DWORD>(ERROR_NOT_ENOUGH_MEMORY, WAIT_FAILED);
    const deadline until(milliseconds);
    if (const DWORD result = mutex->gate->wait(milliseconds); result != WAIT_OBJECT_0)
        return result;
    bool abandoned = mutex->abandoned;
    if (!mutex->name.empty()) {
        const mutex_file::taken taken = mutex->file.lock(until);
        if (taken == mutex_file::taken::too_late || taken == mutex_file::taken::failed) {
            mutex->gate->set();
            return taken == mutex_file::taken::failed ? WAIT_FAILED : static_cast<DWORD>(WAIT_TIMEOUT);
        }
        abandoned = taken == mutex_file::taken::abandoned;
    }
    mutex->abandoned = false;
    mutex->depth = 1;
    mutex->owner.store(self, std::memory_order_relaxed);
    add_owned(*owned, call.mutex);
    return abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
}

namespace {

constexpr std::u16string_view sessions = u"Session\\";

// The names of the spaces of names. A machine has one space, whichever of them is named.
bool is_space(std::u16string_view name) {
    return name == u"Global" || name == u"Local" || name == u"Session"
           || (name.starts_with(sessions) && name.size() > sessions.size()
               && name.find_first_not_of(u"0123456789", sessions.size()) == name.npos);
}

// The name without the space before it. 0 or the code.
DWORD plain_name(const WCHAR* name, std::u16string& plain) {
    plain = name;
    if (plain.size() > longest_name)
        return ERROR_FILENAME_EXCED_RANGE;
    size_t start = 0;
    for (size_t end = plain.find(u'\\'); end != plain.npos; end = plain.find(u'\\', end + 1)) {
        if (is_space(std::u16string_view(plain).substr(0, end)))
            start = end + 1;
    }
    plain.erase(0, start);
    if (is_space(name) || is_space(plain))
        return ERROR_INVALID_HANDLE;
    if (start > 0 && (plain.empty() || plain[0] == u'\\'))
        return ERROR_INVALID_NAME;
    if (plain[0] == u'\\')
        return ERROR_BAD_PATHNAME;
    const bool is_session = start == sessions.size(); // and no space for locks
    return is_session || plain.find(u'\\') != plain.npos ? ERROR_PATH_NOT_FOUND : ERROR_SUCCESS;
}

// The mutex of a name if this process has it open, with the caller's handle counted; else null.
shared_pointer find(const std::u16string& name) {
    const std::lock_guard<std::mutex> held(list_lock());
    const auto known = mutexes_by_name().find(name);
    if (known == mutexes_by_name().end())
        return nullptr;
    ++known->second->users;
    return known->second;
}

// The mutex of a name, in the list, with the caller's handle counted. Null with the code set.
shared_pointer find_or_open(const std::u16string& name, bool may_create, bool for_everyone, bool& existed) {
    if (shared_pointer known = find(name)) {
        existed = true;
        return known;
    }
    const std::shared_lock<fork_lock> opening(files_lock());
    if (!has_swept.exchange(true, std::memory_order_relaxed))
        mutex_file::sweep();
    const auto made = std::make_shared<shared_mutex>();
    made->name = name;
    if (const DWORD code = made->file.open(name, may_create, for_everyone, existed); code != ERROR_SUCCESS)
        return fail<shared_pointer>(code);
    shared_pointer used;
    {
        const std::lock_guard<std::mutex> held(list_lock());
        used = mutexes_by_name().emplace(name, made).first->second;
        ++used->users;
    }
    if (used != made) // another thread was faster
        made->file.close();
    return used;
}

// A handle of a mutex whose user count the caller has raised for it. Null with the code set, and the count put back.
HANDLE handle_of(const shared_pointer& mutex, DWORD access) {
    auto* const opened = new (std::nothrow) mutex_handle(mutex, access);
    if (!opened)
        leave(*mutex);
    return new_handle(opened, guarded_mark);
}

} // namespace

HANDLE CreateMutexW(SECURITY_ATTRIBUTES* attributes, BOOL initially_owned, const WCHAR* name) {
    if (initially_owned)
        return fail<HANDLE>(ERROR_NOT_SUPPORTED);
    bool existed = false;
    shared_pointer mutex;
    if (!name || !*name) {
        mutex = std::make_shared<shared_mutex>();
        mutex->users = 1;
    } else {
        std::u16string plain;
        if (const DWORD code = plain_name(name, plain); code != ERROR_SUCCESS)
            return fail<HANDLE>(code);
        mutex = find_or_open(plain, true, allows_everyone(attributes, MUTEX_ALL_ACCESS), existed);
    }
    if (!mutex)
        return nullptr;
    const HANDLE handle = handle_of(mutex, MUTEX_ALL_ACCESS);
    if (handle)
        SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

HANDLE OpenMutexW(DWORD access, BOOL, const WCHAR* name) {
    std::u16string plain;
    const DWORD code = !name    ? ERROR_INVALID_PARAMETER
                       : !*name ? ERROR_INVALID_HANDLE
                                : plain_name(name, plain);
    if (code != ERROR_SUCCESS)
        return fail<HANDLE>(code);
    bool existed = false;
    const shared_pointer mutex = find_or_open(plain, false, false, existed);
    return mutex ? handle_of(mutex, access) : nullptr;
}

BOOL ReleaseMutex(HANDLE handle) {
    const running_call call(handle);
    shared_mutex* const mutex = call.mutex.get();
    if (!mutex || mutex->owner.load(std::memory_order_relaxed) != thread_serial())
        return fail(mutex ? ERROR_NOT_OWNER : ERROR_INVALID_HANDLE);
    if (--mutex->depth > 0)
        return TRUE;
    owned_list& owned = *owned_by_this_thread();
    owned.erase(std::find(owned.rbegin(), owned.rend(), call.mutex).base() - 1); // mostly the latest
    mutex->owner.store(0, std::memory_order_relaxed);
    if (!mutex->name.empty())
        mutex->file.unlock();
    mutex->gate->set();
    return TRUE;
}

} // namespace platform
