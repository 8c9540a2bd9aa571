// Sends any bytes to both sides of a sealed connection, before and after its handshake. Nobody who
// does not hold the key gets that far, or gets a byte through.
#include "Require.h"

#include <Corvid/detail/net/Seal.h>

#include <algorithm>
#include <array>

namespace {

using Corvid::detail::Seal;

const std::string kFuzzKeys = "/tmp/orvel-seal-fuzz.keys";

void pass(Seal& to, std::span<const std::byte> bytes) {
    while (!bytes.empty() && to.fault().empty()) {
        const auto room = to.room();
        const std::size_t size = std::min(room.size(), bytes.size());
        std::copy_n(bytes.begin(), size, room.begin());
        to.commit(size);
        bytes = bytes.subspan(size);
        std::array<std::byte, 64> opened;
        require(to.open(opened) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto ring = [] {
        Corvid::Keys keys;
        require(keys.grant("a", Corvid::Keys::Right::Drive).empty());
        require(keys.save(kFuzzKeys, true).empty());
        auto made = std::make_shared<Corvid::detail::Keyring>(kFuzzKeys);
        require(made->look().taken);
        return made;
    }();
    const auto bytes = std::as_bytes(std::span(data, size));
    pass(*Seal::accepting(ring), bytes);
    pass(*Seal::connecting(*ring->own()), bytes);
    const auto server = Seal::accepting(ring);
    const auto client = Seal::connecting(*ring->own());
    for (int i = 0; i < 2; ++i) {
        pass(*server, client->output());
        client->sent(client->output().size());
        pass(*client, server->output());
        server->sent(server->output().size());
    }
    require(server->isReady() && client->isReady());
    pass(*server, bytes);
    pass(*client, bytes);
    return 0;
}
