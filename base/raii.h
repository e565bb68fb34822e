// Scope guards for what must be given back.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <utility>

namespace bri {

class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

  private:
    pthread_mutex_t &mutex_;
};

// A descriptor closed at the end of the scope unless released.
class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0)
            close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool ok() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

// A descriptor that is not 0, since 0 stands for "none" in the interface: a process without standard input is given 0
// for the first descriptor it opens. Takes `fd` over; -1 when it was -1 or cannot be moved. The moved one is
// close-on-exec.
[[nodiscard]] inline int above_zero(int fd) {
    if (fd != 0)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 1);
    close(fd);
    return moved;
}

// Heap bytes freed at the end of the scope unless released.
template <class T> class HeapPtr {
  public:
    explicit HeapPtr(T *pointer) : pointer_(pointer) {}
    ~HeapPtr() { std::free(pointer_); }
    HeapPtr(const HeapPtr &) = delete;
    HeapPtr &operator=(const HeapPtr &) = delete;

    [[nodiscard]] T *get() const { return pointer_; }
    [[nodiscard]] T *operator->() const { return pointer_; }
    [[nodiscard]] T &operator*() const { return *pointer_; }
    [[nodiscard]] bool ok() const { return pointer_ != nullptr; }
    T *release() { return std::exchange(pointer_, nullptr); }

  private:
    T *pointer_;
};

} // namespace bri
