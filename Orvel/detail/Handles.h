#pragma once

#include <Orvel/detail/CCalls.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include <orvel_export.h>

namespace Orvel {
class World;
}

/// The handles of the interfaces in C. A handle is no address: it names a slot of one table of the
/// process, a use of that slot, and a kind of object. No handle is given twice, so one whose object
/// is gone, or that was never a handle, is recognised. Any thread.
namespace Orvel::detail {

/// The kinds of objects with handles, those of liborvel-show included.
enum class Kind : unsigned char {
    World,
    Source,
    Emitter,
    Backend,
    Server,
    File,
    Playback,
    Recorder,
    Osc,
    Monitor
};

using HandleNumber = std::uintptr_t;

// A handle, from its low bits: the slot's index, the kind, the number of the use. On 64 bits the
// highest bit is set, as in no address of a program.
constexpr unsigned kIndexBits = sizeof(HandleNumber) >= 8 ? 24 : 16;
constexpr unsigned kKindBits = 5;
constexpr HandleNumber kIndexMask = (HandleNumber{1} << kIndexBits) - 1;
constexpr HandleNumber kKindMask = (HandleNumber{1} << kKindBits) - 1;
constexpr HandleNumber kBlockSize = 1024;

/// Small, because looking up many handles waits for memory.
struct HandleSlot {
    std::atomic<HandleNumber> handle = 0; ///< 0: not in use
    std::atomic<void*> object = nullptr;
};

/// Slots stay where they are and are never freed, so that looking up takes no lock: the `handle` of
/// a slot in use is unequal to any former one.
struct HandleBlock {
    std::array<HandleSlot, kBlockSize> slots;
    std::array<HandleNumber, kBlockSize> nextUse{}; ///< guarded by the table's mutex; 0: none left
};

/// The table; null where it has not grown to yet.
ORVEL_EXPORT extern std::array<std::atomic<HandleBlock*>, (kIndexMask + 1) / kBlockSize>
    handleBlocks;

/// The slot in which a handle is valid, or null.
inline HandleSlot* slotOf(const void* handle) noexcept {
    const auto number = reinterpret_cast<HandleNumber>(handle);
    const HandleNumber index = number & kIndexMask;
    HandleBlock* block = handleBlocks[index / kBlockSize].load(std::memory_order_acquire);
    if (block == nullptr || number == 0) {
        return nullptr;
    }
    HandleSlot& slot = block->slots[index % kBlockSize];
    return slot.handle.load(std::memory_order_acquire) == number ? &slot : nullptr;
}

inline Kind kindOf(const void* handle) noexcept {
    return static_cast<Kind>(reinterpret_cast<HandleNumber>(handle) >> kIndexBits & kKindMask);
}

/// Whether there is an object of any kind behind the handle.
inline bool isHandle(const void* handle) noexcept {
    return slotOf(handle) != nullptr;
}

/// The object, or null if there is none of that kind behind the handle.
inline void* findHandle(const void* handle, Kind kind) noexcept {
    const HandleSlot* slot = slotOf(handle);
    return slot != nullptr && kindOf(handle) == kind ? slot->object.load(std::memory_order_relaxed)
                                                     : nullptr;
}

/// Gives an object a handle. Throws std::bad_alloc if there are too many.
ORVEL_EXPORT void* enterHandle(void* object, Kind kind);
/// Makes a handle invalid.
ORVEL_EXPORT void leaveHandle(void* handle) noexcept;
/// Throws the Refusal for a handle that findHandle() did not find.
[[noreturn]] ORVEL_EXPORT void refuseHandle(const void* handle, Kind kind);

/// The object behind a handle; `Object` is the type that was entered for that kind.
template <class Object>
Object& live(const void* handle, Kind kind) {
    void* object = findHandle(handle, kind);
    if (object == nullptr) {
        refuseHandle(handle, kind);
    }
    return *static_cast<Object*>(object);
}

/// The handle of the object that this is a member of.
class OwnHandle {
public:
    OwnHandle(void* object, Kind kind) : handle_(enterHandle(object, kind)) {}
    OwnHandle(const OwnHandle&) = delete;
    OwnHandle& operator=(const OwnHandle&) = delete;
    ~OwnHandle() { leave(); }

    /// For an object that must not be found any more while its destructor runs.
    void leave() noexcept { leaveHandle(std::exchange(handle_, nullptr)); }

    template <class Handle>
    [[nodiscard]] Handle* as() const noexcept {
        return static_cast<Handle*>(handle_);
    }

private:
    void* handle_;
};

class HandleOwner;

/// An object of the interfaces in C that uses a world: it is destroyed with that world at the
/// latest.
class ORVEL_EXPORT Attachment {
public:
    Attachment() = default;
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
    virtual ~Attachment();

    /// Gives an object to a world of the interface in C.
    static void attach(World& world, std::unique_ptr<Attachment> attachment);
    /// Destroys it.
    void detach();

private:
    HandleOwner* owner_ = nullptr;
};

/// The base of the worlds of the interface in C: the handles of their parts and back ends, which
/// are given on first demand, and their attachments.
class ORVEL_EXPORT HandleOwner {
public:
    HandleOwner() = default;
    HandleOwner(const HandleOwner&) = delete;
    HandleOwner& operator=(const HandleOwner&) = delete;
    virtual ~HandleOwner();

    /// The same at each call until drop().
    void* handleOf(void* object, Kind kind);
    /// Makes the handle of an object invalid, if it has one.
    void drop(const void* object) noexcept;
    /// In the destructors of derived classes, while the world is whole.
    void dropAttachments() noexcept { attachments_.clear(); }

private:
    friend class Attachment;

    std::unordered_map<const void*, void*> handles_;
    std::vector<std::unique_ptr<Attachment>> attachments_;
};

/// The callback that runs on this thread. It is called in the middle of an operation, which must
/// find its objects again.
enum class Callback {
    None,
    Reset, ///< parts may be destroyed
    Report ///< nothing may
};

/// Present while a callback runs.
class ORVEL_EXPORT CallingBack {
public:
    explicit CallingBack(Callback callback) noexcept;
    CallingBack(const CallingBack&) = delete;
    CallingBack& operator=(const CallingBack&) = delete;
    ~CallingBack();

private:
    Callback outer_;
};

/// Throws a Refusal if a callback runs on this thread that is more than `allowed`.
ORVEL_EXPORT void refuseInCallback(Callback allowed = Callback::None);

} // namespace Orvel::detail
