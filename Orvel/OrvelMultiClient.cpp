#include <Orvel/OrvelMultiClient.h>

#include <Orvel/ClientBackend.h>

namespace Orvel {

OrvelMultiClient::OrvelMultiClient(int protocolVersion, ClientBackend& backend)
    : MultiClient(protocolVersion), backend_(backend) {}

bool OrvelMultiClient::addCommunicator(Corvid::Communicator* connection) {
    return MultiCommunicator::addCommunicator(connection) && backend_.addCommunicator(connection);
}

} // namespace Orvel
