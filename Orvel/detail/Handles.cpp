#include <Orvel/detail/Handles.h>

#include <Orvel/World.h>
#include <Vessa/Mutex.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <utility>

namespace Orvel::detail {

namespace {

using Number = HandleNumber;

constexpr Number kNextUse = Number{1} << (kIndexBits + kKindBits);
constexpr Number kFirstUse = sizeof(Number) >= 8 ? Number{1} << (8 * sizeof(Number) - 1) : kNextUse;

constexpr std::array kNames = {"world", "source",   "emitter",  "back end",  "server",
                               "file",  "playback", "recorder", "OSC input", "monitor"};

/// Gives slots away and takes them back.
class Table {
public:
    void* enter(void* object, Kind kind) {
        const Vessa::Lock guard(mutex_);
        const Number index = takeIndex();
        HandleBlock& block = *handleBlocks[index / kBlockSize].load(std::memory_order_relaxed);
        Number& use = block.nextUse[index % kBlockSize];
        const Number handle = use | static_cast<Number>(kind) << kIndexBits | index;
        use = use <= UINTPTR_MAX - kNextUse ? use + kNextUse : 0;
        HandleSlot& slot = block.slots[index % kBlockSize];
        slot.object.store(object, std::memory_order_relaxed);
        slot.handle.store(handle, std::memory_order_release);
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a number, never dereferenced
        return reinterpret_cast<void*>(handle);
    }

    void leave(const void* handle) {
        const Vessa::Lock guard(mutex_);
        if (HandleSlot* slot = slotOf(handle)) {
            slot->handle.store(0, std::memory_order_relaxed);
            const Number index = reinterpret_cast<Number>(handle) & kIndexMask;
            const HandleBlock& block =
                *handleBlocks[index / kBlockSize].load(std::memory_order_relaxed);
            if (block.nextUse[index % kBlockSize] != 0) {
                free_.push_back(index);
            }
        }
    }

private:
    Number takeIndex() ORVEL_REQUIRES(mutex_) {
        if (!free_.empty()) {
            const Number index = free_.back();
            free_.pop_back();
            return index;
        }
        if (used_ > kIndexMask) {
            throw std::bad_alloc();
        }
        if (used_ % kBlockSize == 0) {
            free_.reserve(used_ + kBlockSize); // leave() must not fail
            auto* block = new HandleBlock;     // NOLINT: kept for ever
            block->nextUse.fill(kFirstUse);
            handleBlocks[used_ / kBlockSize].store(block, std::memory_order_release);
        }
        return used_++;
    }

    Vessa::Mutex mutex_;
    std::vector<Number> free_ ORVEL_GUARDED_BY(mutex_);
    Number used_ ORVEL_GUARDED_BY(mutex_) = 0;
};

/// Never destroyed, because worlds may be alive when the process exits.
Table& table() {
    static Table* const table = new Table; // NOLINT: kept for ever
    return *table;
}

thread_local Callback running = Callback::None;

} // namespace

constinit std::array<std::atomic<HandleBlock*>, (kIndexMask + 1) / kBlockSize> handleBlocks{};

void* enterHandle(void* object, Kind kind) {
    return table().enter(object, kind);
}

void leaveHandle(void* handle) noexcept {
    table().leave(handle);
}

void refuseHandle(const void* handle, Kind kind) {
    const std::string name = std::string("the ") + kNames.at(static_cast<std::size_t>(kind));
    need(handle, name.c_str());
    if (isHandle(handle)) {
        throw Refusal(
            "the " + std::string(kNames.at(static_cast<std::size_t>(kindOf(handle)))) +
            " is given as " + name + "; check the order of the arguments");
    }
    throw Refusal(name + " is gone: it was destroyed, alone or with its world; create it again");
}

Attachment::~Attachment() = default;

void Attachment::attach(World& world, std::unique_ptr<Attachment> attachment) {
    auto& owner = dynamic_cast<HandleOwner&>(world);
    attachment->owner_ = &owner;
    owner.attachments_.push_back(std::move(attachment));
}

void Attachment::detach() {
    refuseInCallback();
    auto& all = owner_->attachments_;
    const auto found = std::ranges::find(all, this, &std::unique_ptr<Attachment>::get);
    const std::unique_ptr<Attachment> last = std::move(*found);
    all.erase(found);
}

HandleOwner::~HandleOwner() {
    for (const auto& [object, handle] : handles_) {
        leaveHandle(handle);
    }
}

void* HandleOwner::handleOf(void* object, Kind kind) {
    void*& handle = handles_[object];
    if (handle == nullptr) {
        handle = enterHandle(object, kind);
    }
    return handle;
}

void HandleOwner::drop(const void* object) noexcept {
    if (const auto found = handles_.find(object); found != handles_.end()) {
        leaveHandle(found->second);
        handles_.erase(found);
    }
}

CallingBack::CallingBack(Callback callback) noexcept : outer_(std::exchange(running, callback)) {}

CallingBack::~CallingBack() {
    running = outer_;
}

void refuseInCallback(Callback allowed) {
    if (running > allowed) {
        throw Refusal("not possible inside a callback; call it after the callback has returned");
    }
}

} // namespace Orvel::detail
