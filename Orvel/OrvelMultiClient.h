#pragma once

#include <Corvid/MultiClient.h>

#include <orvel_export.h>

namespace Orvel {

class ClientBackend;

/// The connections of a client back end, which brings each new server up to date.
/// Owned by its back end, which must outlive it. See Corvid::MultiCommunicator for threads.
class ORVEL_EXPORT OrvelMultiClient : public Corvid::MultiClient {
public:
    OrvelMultiClient(int protocolVersion, ClientBackend& backend);

    /// Registers the connection, then has the back end send it the whole scene.
    bool addCommunicator(Corvid::Communicator* connection) override;

private:
    ClientBackend& backend_;
};

} // namespace Orvel
