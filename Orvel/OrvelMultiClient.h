#pragma once

#include <Corvid/MultiClient.h>

#include <cstddef>
#include <span>

#include <orvel_export.h>

namespace Orvel {

class ClientBackend;

/// The connections of a client back end; brings each new server up to date. Owned by its back end,
/// which must outlive it. See Corvid::MultiCommunicator for threads.
class ORVEL_EXPORT OrvelMultiClient : public Corvid::MultiClient {
public:
    OrvelMultiClient(int protocolVersion, ClientBackend& backend);

    /// Registers the connection, then has the back end send it the whole scene.
    bool addCommunicator(Corvid::Communicator* connection) override;

    /// A function for setNewestOnly(): transforms, hulls and parameters are values of their
    /// emitter, source or listener. Frames that are not commands of this library are barriers.
    static Corvid::FrameRole roleOf(std::span<const std::byte> frame);

private:
    friend class ClientBackend; // hub

    ClientBackend& backend_;
};

} // namespace Orvel
