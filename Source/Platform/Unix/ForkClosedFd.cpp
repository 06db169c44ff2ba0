#include "Platform/Unix/ForkClosedFd.h"

#include <mutex>
#include <pthread.h>
#include <utility>

namespace corvid {

// A plain std::mutex: the fork handlers lock and unlock it in different functions.
struct ForkList {
    std::mutex mutex;
    ForkClosedFd* first = nullptr;

    static ForkList& shared() {
        // Never destroyed: descriptors with static storage outlive any order of destruction.
        static ForkList* const list = [] {
            auto* made = new ForkList;
            pthread_atfork([] { shared().mutex.lock(); }, [] { shared().mutex.unlock(); },
                           [] {
                               ForkList& self = shared();
                               while (self.first != nullptr) {
                                   ForkClosedFd& fd = *self.first;
                                   self.remove(fd);
                                   fd.fd_.reset();
                               }
                               self.mutex.unlock();
                           });
            return made;
        }();
        return *list;
    }

    void add(ForkClosedFd& fd) {
        fd.next_ = first;
        if (first != nullptr) {
            first->previous_ = &fd;
        }
        first = &fd;
    }

    void remove(ForkClosedFd& fd) {
        if (fd.next_ != nullptr) {
            fd.next_->previous_ = fd.previous_;
        }
        if (fd.previous_ != nullptr) {
            fd.previous_->next_ = fd.next_;
        } else {
            first = fd.next_;
        }
        fd.next_ = fd.previous_ = nullptr;
    }
};

ForkClosedFd::ForkClosedFd(OwnedFd fd) : fd_(std::move(fd)) {
    if (fd_) {
        ForkList& list = ForkList::shared();
        const std::lock_guard lock(list.mutex);
        list.add(*this);
    }
}

ForkClosedFd::ForkClosedFd(ForkClosedFd&& other) noexcept {
    *this = std::move(other);
}

ForkClosedFd& ForkClosedFd::operator=(ForkClosedFd&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    reset();
    ForkList& list = ForkList::shared();
    const std::lock_guard lock(list.mutex);
    if (other.fd_) {
        list.remove(other);
        fd_ = std::move(other.fd_);
        list.add(*this);
    }
    return *this;
}

ForkClosedFd::~ForkClosedFd() {
    reset();
}

void ForkClosedFd::reset() {
    if (fd_) {
        ForkList& list = ForkList::shared();
        const std::lock_guard lock(list.mutex);
        list.remove(*this);
        fd_.reset();
    }
}

} // namespace corvid
