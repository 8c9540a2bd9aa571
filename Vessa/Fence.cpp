#include <Vessa/Fence.h>

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Vessa {

namespace {

bool membarrier(int command) {
    return ::syscall(SYS_membarrier, command, 0, 0) == 0;
}

} // namespace

std::atomic<bool> Fence::_asymmetric = false;

void Fence::prepare() {
    // A light fence that still is a plain one does no harm.
    _asymmetric = membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
}

void Fence::heavy() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (_asymmetric.load(std::memory_order_relaxed) &&
        !membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) {
        membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED); // the child of a fork
        membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
    }
}

} // namespace Vessa
