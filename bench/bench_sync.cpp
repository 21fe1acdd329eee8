// Thread locks, events and semaphores beside the host's.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>

#include "zu/zu.h"

namespace {

// A server has several threads, and some of the host's calls take a shortcut while there has been only one.
const bool threaded = [] {
    std::thread([] {}).join();
    return true;
}();

void lock_zu(benchmark::State& state) {
    ZU_lock_thread lock;
    ZU_lock_thread_init(&lock);
    for (auto _ : state) {
        ZU_lock_thread_lock(&lock);
        ZU_lock_thread_unlock(&lock);
    }
    ZU_lock_thread_destroy(&lock);
}
BENCHMARK(lock_zu);

void lock_recursive_pthread(benchmark::State& state) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}
BENCHMARK(lock_recursive_pthread);

void nested_lock_zu(benchmark::State& state) {
    ZU_lock_thread lock;
    ZU_lock_thread_init(&lock);
    ZU_lock_thread_lock(&lock);
    for (auto _ : state) {
        ZU_lock_thread_lock(&lock);
        ZU_lock_thread_unlock(&lock);
    }
    ZU_lock_thread_unlock(&lock);
}
BENCHMARK(nested_lock_zu);

void nested_lock_recursive_mutex(benchmark::State& state) {
    std::recursive_mutex mutex;
    const std::lock_guard<std::recursive_mutex> held(mutex);
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(nested_lock_recursive_mutex);

void event_set_wait_zu(benchmark::State& state) {
    ZU_event* event = ZU_create_event(0);
    for (auto _ : state) {
        ZU_set_event(event);
        ZU_wait_for_event(event, ZU_WAIT_INFINITE);
    }
    ZU_destroy_event(event);
}
BENCHMARK(event_set_wait_zu);

// The described steps alone: an exchange each way, and a look whether somebody sleeps.
void event_set_wait_bare(benchmark::State& state) {
    std::atomic<uint32_t> signal{0}, sleepers{0};
    for (auto _ : state) {
        signal.exchange(1);
        if (sleepers.load(std::memory_order_relaxed) != 0)
            syscall(SYS_futex, &signal, FUTEX_WAKE_PRIVATE, 1);
        benchmark::DoNotOptimize(signal.exchange(0));
    }
}
BENCHMARK(event_set_wait_bare);

void wait_any_of_64_zu(benchmark::State& state) {
    ZU_event* events[64];
    for (ZU_event*& one : events)
        one = ZU_create_event(1);
    ZU_set_event(events[63]);
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_wait_for_multiple_events(64, events, 0, ZU_WAIT_INFINITE));
    for (ZU_event* one : events)
        ZU_destroy_event(one);
}
BENCHMARK(wait_any_of_64_zu);

// 64 words looked at, and the array of handles made and freed.
void wait_any_of_64_bare(benchmark::State& state) {
    static std::atomic<uint32_t> words[64 * 16]; // each in a cache line of its own, as objects are
    words[63 * 16] = 1;
    for (auto _ : state) {
        void** copies = static_cast<void**>(ZU_malloc(64 * sizeof(void*)));
        for (int i = 0; i < 64; ++i)
            copies[i] = &words[i * 16];
        int found = 0;
        while (static_cast<std::atomic<uint32_t>*>(copies[found])->load() == 0)
            ++found;
        benchmark::DoNotOptimize(found);
        ZU_free(copies);
    }
}
BENCHMARK(wait_any_of_64_bare);

void semaphore_post_wait_zu(benchmark::State& state) {
    ZU_sem* sem = ZU_sem_create(0, 1);
    for (auto _ : state) {
        ZU_sem_post(sem);
        ZU_sem_wait(sem, ZU_WAIT_INFINITE, nullptr);
    }
    ZU_sem_destroy(sem);
}
BENCHMARK(semaphore_post_wait_zu);

void semaphore_post_wait_host(benchmark::State& state) {
    sem_t sem;
    sem_init(&sem, 0, 0);
    for (auto _ : state) {
        sem_post(&sem);
        sem_wait(&sem);
    }
    sem_destroy(&sem);
}
BENCHMARK(semaphore_post_wait_host);

// A lock between processes that is free again when its owner dies. Without the library a program would lock a file.
void process_lock_zu(benchmark::State& state) {
    ZU_lock_process lock = ZU_lock_process_create(u"zu-bench");
    for (auto _ : state) {
        ZU_lock_process_lock(lock);
        ZU_lock_process_unlock(lock);
    }
    ZU_lock_process_close(lock);
}
BENCHMARK(process_lock_zu);

void process_lock_flock(benchmark::State& state) {
    std::FILE* file = std::tmpfile();
    for (auto _ : state) {
        flock(fileno(file), LOCK_EX);
        flock(fileno(file), LOCK_UN);
    }
    std::fclose(file);
}
BENCHMARK(process_lock_flock);

// The described steps alone: a lock on the file, and a word that says that it is held.
void process_lock_bare(benchmark::State& state) {
    std::FILE* file = std::tmpfile();
    const int number = fileno(file);
    void* word = ftruncate(number, 4096) == 0
                     ? mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, number, 0)
                     : nullptr;
    struct flock byte = {};
    byte.l_len = 1;
    constexpr int set_free = FUTEX_OP(FUTEX_OP_SET, 0, FUTEX_OP_CMP_EQ, 0);
    for (auto _ : state) {
        byte.l_type = F_WRLCK;
        fcntl(number, F_OFD_SETLK, &byte);
        syscall(SYS_futex, word, FUTEX_TRYLOCK_PI, 0, nullptr, nullptr, 0);
        syscall(SYS_futex, word, FUTEX_WAKE_OP, 1, 0, word, set_free);
        byte.l_type = F_UNLCK;
        fcntl(number, F_OFD_SETLK, &byte);
    }
    std::fclose(file);
}
BENCHMARK(process_lock_bare);

// Threads that work under one lock.
template <class Lock>
void threads_at_a_lock(benchmark::State& state) {
    static Lock lock;
    static int64_t counter;
    for (auto _ : state) {
        lock.lock();
        ++counter;
        lock.unlock();
    }
}
struct thread_lock_zu {
    thread_lock_zu() { ZU_lock_thread_init(&storage); }
    void lock() { ZU_lock_thread_lock(&storage); }
    void unlock() { ZU_lock_thread_unlock(&storage); }
    ZU_lock_thread storage;
};
BENCHMARK(threads_at_a_lock<thread_lock_zu>)->Threads(2)->Threads(8)->UseRealTime();
BENCHMARK(threads_at_a_lock<std::recursive_mutex>)->Threads(2)->Threads(8)->UseRealTime();

// Two threads hand the turn to and fro; one round is two hand-overs.
void ping_pong_zu(benchmark::State& state) {
    ZU_event* there = ZU_create_event(0);
    ZU_event* back = ZU_create_event(0);
    bool over = false;
    std::thread partner([&] {
        while (ZU_wait_for_event(there, ZU_WAIT_INFINITE), !over)
            ZU_set_event(back);
    });
    for (auto _ : state) {
        ZU_set_event(there);
        ZU_wait_for_event(back, ZU_WAIT_INFINITE);
    }
    over = true;
    ZU_set_event(there);
    partner.join();
    ZU_destroy_event(there);
    ZU_destroy_event(back);
}
BENCHMARK(ping_pong_zu)->UseRealTime();

void ping_pong_host(benchmark::State& state) {
    sem_t there, back;
    sem_init(&there, 0, 0);
    sem_init(&back, 0, 0);
    bool over = false;
    std::thread partner([&] {
        while (sem_wait(&there), !over)
            sem_post(&back);
    });
    for (auto _ : state) {
        sem_post(&there);
        sem_wait(&back);
    }
    over = true;
    sem_post(&there);
    partner.join();
}
BENCHMARK(ping_pong_host)->UseRealTime();

} // namespace
