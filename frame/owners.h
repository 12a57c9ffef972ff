// Owners of blocks and locks: every block a call makes and does not hand out is freed, and every
// lock it takes is released, on every way out.
#pragma once

#include <cstdint>
#include <utility>

#include "tz3effect.h"

namespace tz3 {

// Frees its block when it goes out of scope, unless released.
class BlockOwner {
public:
    BlockOwner() = default;
    explicit BlockOwner(DibHandle h) : handle_(h) {}
    BlockOwner(BlockOwner &&o) noexcept : handle_(std::exchange(o.handle_, nullptr)) {}
    BlockOwner &operator=(BlockOwner &&o) noexcept {
        if (this != &o) {
            Reset();
            handle_ = std::exchange(o.handle_, nullptr);
        }
        return *this;
    }
    BlockOwner(const BlockOwner &) = delete;
    BlockOwner &operator=(const BlockOwner &) = delete;
    ~BlockOwner() { Reset(); }

    DibHandle get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    DibHandle Release() { return std::exchange(handle_, nullptr); }
    void Reset() {
        if (handle_ != nullptr) Tz3GlobalFree(std::exchange(handle_, nullptr));
    }

private:
    DibHandle handle_ = nullptr;
};

// Holds one lock of a block and releases it when it goes out of scope.
class LockedBlock {
public:
    LockedBlock() = default;
    explicit LockedBlock(DibHandle h)
        : handle_(h), bytes_(h == nullptr ? nullptr : static_cast<uint8_t *>(Tz3GlobalLock(h))) {
        if (bytes_ == nullptr) handle_ = nullptr;
    }
    LockedBlock(LockedBlock &&o) noexcept
        : handle_(std::exchange(o.handle_, nullptr)), bytes_(std::exchange(o.bytes_, nullptr)) {}
    LockedBlock &operator=(LockedBlock &&o) noexcept {
        if (this != &o) {
            Unlock();
            handle_ = std::exchange(o.handle_, nullptr);
            bytes_ = std::exchange(o.bytes_, nullptr);
        }
        return *this;
    }
    LockedBlock(const LockedBlock &) = delete;
    LockedBlock &operator=(const LockedBlock &) = delete;
    ~LockedBlock() { Unlock(); }

    uint8_t *bytes() const { return bytes_; }
    DibHandle handle() const { return handle_; }
    size_t size() const { return Tz3GlobalSize(handle_); }
    explicit operator bool() const { return bytes_ != nullptr; }
    void Unlock() {
        if (handle_ != nullptr) Tz3GlobalUnlock(handle_);
        handle_ = nullptr;
        bytes_ = nullptr;
    }

private:
    DibHandle handle_ = nullptr;
    uint8_t *bytes_ = nullptr;
};

// A block this call made and keeps locked for its whole life: freed and unlocked on every way out
// unless handed out. Declared after anything that reads it, so it outlives the readers.
class OwnedBlock {
public:
    OwnedBlock() = default;
    // Takes h (which may be null) and locks it; bytes() is null when either failed.
    explicit OwnedBlock(DibHandle h) : owner_(h), lock_(h) {}
    OwnedBlock(OwnedBlock &&) noexcept = default;
    // The block held before is unlocked before it is freed.
    OwnedBlock &operator=(OwnedBlock &&o) noexcept {
        lock_ = std::move(o.lock_);
        owner_ = std::move(o.owner_);
        return *this;
    }
    uint8_t *bytes() const { return lock_.bytes(); }
    DibHandle handle() const { return owner_.get(); }
    explicit operator bool() const { return lock_.bytes() != nullptr; }
    // Unlocks and hands the block out.
    DibHandle Release() {
        lock_.Unlock();
        return owner_.Release();
    }

private:
    BlockOwner owner_;
    LockedBlock lock_;
};

// Allocates a zeroed block of `bytes` and locks it; status 3 and an empty owner on failure or when
// the size passes the block limit.
OwnedBlock AllocLocked(uint64_t bytes);

}  // namespace tz3
