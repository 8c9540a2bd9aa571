#pragma once

#include <Corvid/Keys.h>
#include <Corvid/detail/net/Keyring.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct iovec;
struct ssl_st; // OpenSSL's

namespace Corvid::detail {

/// One side of a sealed connection: TLS 1.3 with a key of the key file and an ephemeral
/// Diffie-Hellman exchange. It holds bytes, no socket: those received go into room(), those to be
/// sent are in output(). Confined to the loop thread. The keyring must outlive its handshake.
class Seal {
public:
    /// Limit of received bytes before the peer has proven that it holds a key.
    static constexpr std::size_t kMaxHandshakeBytes = std::size_t{16} << 10U;
    static constexpr std::size_t kRecordBytes = std::size_t{16} << 10U;
    /// The keys of the session are renewed after so many records, well before their limit.
    static constexpr std::uint64_t kRecordsPerKey = std::uint64_t{1} << 22U;

    /// The connecting side, with its key; output() begins with its first message.
    static std::unique_ptr<Seal> connecting(const Keys::Key& key);
    /// The accepting side.
    static std::unique_ptr<Seal> accepting(std::shared_ptr<const Keyring> ring);
    Seal(const Seal&) = delete;
    Seal& operator=(const Seal&) = delete;
    ~Seal();

    /// The space for received bytes; never empty once open() has returned 0.
    std::span<std::byte> room();
    /// Sets the number of bytes stored there, and continues the handshake.
    void commit(std::size_t bytes);
    /// Whether both sides have proven that they hold the key.
    [[nodiscard]] bool isReady() const { return ready_; }
    /// The key of the connection; meaningful once ready.
    [[nodiscard]] const Keys::Key& key() const { return key_; }
    /// Whether open() may return something.
    [[nodiscard]] bool hasInput() const;
    /// Opens received bytes into `to`. Returns their number, 0 if there are none yet, or if the
    /// peer has closed the connection, or if it is broken.
    std::size_t open(std::span<std::byte> to);
    /// Why the connection must be closed; empty if all is well.
    [[nodiscard]] const std::string& fault() const { return fault_; }

    /// Seals bytes from the front of the pieces into output(). Once ready.
    void seal(const iovec* pieces, std::size_t bytes);
    [[nodiscard]] std::span<const std::byte> output() const {
        return std::span(out_).subspan(outBegin_);
    }
    void sent(std::size_t bytes);

private:
    struct Context;

    explicit Seal(std::shared_ptr<const Keyring> ring, const Keys::Key* key);
    void handshake();
    void sealRecord(const std::byte* bytes, std::size_t size);
    void fail(std::string fault);

    std::unique_ptr<ssl_st, void (*)(ssl_st*)> ssl_;
    std::shared_ptr<const Keyring> ring_; // of the accepting side, until it is ready
    Keys::Key key_;
    bool accepts_;
    bool ready_ = false;
    std::string fault_;
    std::uint64_t received_ = 0;
    std::uint64_t records_ = 0; // since the last change of keys
    std::vector<std::byte> in_;
    std::size_t inBegin_ = 0;
    std::size_t inEnd_ = 0;
    std::vector<std::byte> out_;
    std::size_t outBegin_ = 0;
    std::vector<std::byte> record_; // collects small pieces
};

} // namespace Corvid::detail
