#pragma once

#include <atomic>

namespace Vessa {

/// Two fences that work against each other: between two threads, one of which runs the light fence
/// often and the other the heavy one rarely, they order memory as if both ran a sequentially
/// consistent fence. The light one costs nothing where the system has membarrier(2), and is a plain
/// fence elsewhere. Synchronised.
class Fence {
public:
    /// Call it once before the fences, in each process.
    static void prepare();
    [[gnu::always_inline]] static void light() {
        if (_asymmetric.load(std::memory_order_relaxed)) {
            std::atomic_signal_fence(std::memory_order_seq_cst); // for the compiler
        } else {
            std::atomic_thread_fence(std::memory_order_seq_cst);
        }
    }
    static void heavy();

private:
    static std::atomic<bool> _asymmetric;
};

} // namespace Vessa
