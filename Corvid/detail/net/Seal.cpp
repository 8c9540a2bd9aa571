#include <Corvid/detail/net/Seal.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <sys/uio.h>
#include <utility>

namespace Corvid::detail {

namespace {

constexpr std::size_t kHandshakeRoom = std::size_t{4} << 10U;
constexpr std::size_t kInputRoom = std::size_t{64} << 10U;
constexpr unsigned char kTlsHandshake = 22; // the first byte of a TLS connection
constexpr unsigned char kAes128Gcm[] = {0x13, 0x01};

/// The session that OpenSSL continues: a key of the file. Null if out of memory.
SSL_SESSION* sessionOf(SSL* ssl, const Keys::Key& key) {
    std::unique_ptr<SSL_SESSION, void (*)(SSL_SESSION*)> session(
        ::SSL_SESSION_new(), &::SSL_SESSION_free);
    const bool good =
        session != nullptr &&
        ::SSL_SESSION_set1_master_key(
            session.get(), reinterpret_cast<const unsigned char*>(key.secret.data()),
            key.secret.size()) == 1 &&
        ::SSL_SESSION_set_cipher(session.get(), ::SSL_CIPHER_find(ssl, kAes128Gcm)) == 1 &&
        ::SSL_SESSION_set_protocol_version(session.get(), TLS1_3_VERSION) == 1;
    return good ? session.release() : nullptr;
}

} // namespace

/// OpenSSL's objects for all connections, and its calls back.
struct Seal::Context {
    static Seal& of(const SSL* ssl) { return *static_cast<Seal*>(SSL_get_app_data(ssl)); }
    static Seal& of(BIO* bio) { return *static_cast<Seal*>(::BIO_get_data(bio)); }

    static int read(BIO* bio, char* to, int size) {
        Seal& seal = of(bio);
        const std::size_t count =
            std::min(static_cast<std::size_t>(size), seal.inEnd_ - seal.inBegin_);
        BIO_clear_retry_flags(bio);
        if (count == 0) {
            BIO_set_retry_read(bio);
            return -1;
        }
        std::memcpy(to, seal.in_.data() + seal.inBegin_, count);
        seal.inBegin_ += count;
        return static_cast<int>(count);
    }
    static int write(BIO* bio, const char* from, int size) {
        BIO_clear_retry_flags(bio);
        const auto* bytes = reinterpret_cast<const std::byte*>(from);
        try {
            auto& out = of(bio).out_;
            out.insert(out.end(), bytes, bytes + size);
        } catch (const std::bad_alloc&) {
            return -1;
        }
        return size;
    }
    static long control(BIO* /*bio*/, int command, long /*number*/, void* /*pointer*/) {
        return command == BIO_CTRL_FLUSH ? 1 : 0;
    }

    /// Of the connecting side: gives the one key.
    static int
    use(SSL* ssl, const EVP_MD* /*hash*/, const unsigned char** id, std::size_t* idSize,
        SSL_SESSION** session) {
        const Seal& seal = of(ssl);
        *session = sessionOf(ssl, seal.key_);
        *id = reinterpret_cast<const unsigned char*>(seal.key_.id.data());
        *idSize = seal.key_.id.size();
        return *session != nullptr ? 1 : 0;
    }
    /// Of the accepting side: looks up the key. An unknown one is replaced by a random secret, so
    /// that a stranger cannot distinguish an unknown key from a wrong secret.
    static int find(SSL* ssl, const unsigned char* id, std::size_t idSize, SSL_SESSION** session) {
        Seal& seal = of(ssl);
        const std::string_view text(reinterpret_cast<const char*>(id), idSize);
        try {
            const Keys::Key* key = seal.ring_ ? seal.ring_->keys().find(text) : nullptr;
            Keys::Key stranger;
            if (::RAND_bytes(
                    reinterpret_cast<unsigned char*>(stranger.secret.data()),
                    static_cast<int>(stranger.secret.size())) != 1) {
                return 0; // a secret of zeros could be guessed
            }
            seal.key_ = key != nullptr ? *key : stranger;
        } catch (const std::bad_alloc&) {
            return 0;
        }
        *session = sessionOf(ssl, seal.key_);
        return *session != nullptr ? 1 : 0;
    }

    Context()
        : method(
              ::BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "orvel seal"),
              &::BIO_meth_free),
          ctx(::SSL_CTX_new(::TLS_method()), &::SSL_CTX_free) {
        if (!method || !ctx) {
            throw std::bad_alloc();
        }
        ::BIO_meth_set_read(method.get(), &Context::read);
        ::BIO_meth_set_write(method.get(), &Context::write);
        ::BIO_meth_set_ctrl(method.get(), &Context::control);
        SSL_CTX_set_min_proto_version(ctx.get(), TLS1_3_VERSION);
        SSL_CTX_set_max_proto_version(ctx.get(), TLS1_3_VERSION);
        ::SSL_CTX_set_ciphersuites(ctx.get(), "TLS_AES_128_GCM_SHA256");
        SSL_CTX_set1_groups_list(ctx.get(), "X25519:P-256");
        ::SSL_CTX_set_options(ctx.get(), SSL_OP_NO_TICKET | SSL_OP_NO_COMPRESSION);
        ::SSL_CTX_set_num_tickets(ctx.get(), 0);
        ::SSL_CTX_set_max_early_data(ctx.get(), 0);
        SSL_CTX_set_session_cache_mode(ctx.get(), SSL_SESS_CACHE_OFF);
        SSL_CTX_set_mode(ctx.get(), SSL_MODE_RELEASE_BUFFERS);
        ::SSL_CTX_set_psk_use_session_callback(ctx.get(), &Context::use);
        ::SSL_CTX_set_psk_find_session_callback(ctx.get(), &Context::find);
    }

    static Context& instance() {
        static auto* context = new Context; // never destroyed: see Log
        return *context;
    }

    const std::unique_ptr<BIO_METHOD, void (*)(BIO_METHOD*)> method;
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ctx;
};

std::unique_ptr<Seal> Seal::connecting(const Keys::Key& key) {
    std::unique_ptr<Seal> seal(new Seal(nullptr, &key));
    seal->handshake();
    return seal;
}

std::unique_ptr<Seal> Seal::accepting(std::shared_ptr<const Keyring> ring) {
    return std::unique_ptr<Seal>(new Seal(std::move(ring), nullptr));
}

Seal::Seal(std::shared_ptr<const Keyring> ring, const Keys::Key* key)
    : ssl_(::SSL_new(Context::instance().ctx.get()), &::SSL_free), ring_(std::move(ring)),
      accepts_(key == nullptr) {
    BIO* bio = ::BIO_new(Context::instance().method.get());
    if (!ssl_ || bio == nullptr) {
        ::BIO_free(bio);
        throw std::bad_alloc();
    }
    ::BIO_set_data(bio, this);
    ::BIO_set_init(bio, 1);
    ::SSL_set_bio(ssl_.get(), bio, bio);
    SSL_set_app_data(ssl_.get(), this);
    if (key != nullptr) {
        key_ = *key;
        // Only the key counts: a server without it would need a certificate, and none is trusted.
        ::SSL_set_verify(ssl_.get(), SSL_VERIFY_PEER, nullptr);
        ::SSL_set_connect_state(ssl_.get());
    } else {
        ::SSL_set_accept_state(ssl_.get());
    }
}

Seal::~Seal() {
    ::OPENSSL_cleanse(key_.secret.data(), key_.secret.size());
}

void Seal::fail(std::string fault) {
    if (fault_.empty()) {
        fault_ = std::move(fault);
    }
    ::ERR_clear_error();
}

std::span<std::byte> Seal::room() {
    const std::size_t size = ready_ ? kInputRoom : kHandshakeRoom;
    if (in_.size() < size) {
        in_.resize(size);
    }
    if (inBegin_ > 0) {
        std::memmove(in_.data(), in_.data() + inBegin_, inEnd_ - inBegin_);
        inEnd_ -= std::exchange(inBegin_, 0);
    }
    return std::span(in_).subspan(inEnd_);
}

void Seal::commit(std::size_t bytes) {
    if (received_ == 0 && bytes > 0 &&
        std::to_integer<unsigned char>(in_[inEnd_]) != kTlsHandshake) {
        fail(
            accepts_ ? "it did not begin a sealed session; give it a key of this server"
                     : "it has no keys; give it the key file of the show, or use none here");
    }
    inEnd_ += bytes;
    received_ += bytes;
    if (!ready_ && fault_.empty()) {
        handshake();
    }
}

void Seal::handshake() {
    ::ERR_clear_error();
    const int result = ::SSL_do_handshake(ssl_.get());
    if (result == 1) {
        // The peer could have ignored the key if it had a certificate; that is not enough.
        if (::SSL_session_reused(ssl_.get()) != 1) {
            fail("it did not prove that it holds the key");
            return;
        }
        ready_ = true;
        ring_.reset();
        return;
    }
    if (::SSL_get_error(ssl_.get(), result) != SSL_ERROR_WANT_READ) {
        fail(
            accepts_ ? "it does not hold a key of this server"
                     : "it did not prove that it holds the key; another machine may be in between");
        out_.clear(); // no reason for strangers
        outBegin_ = 0;
    } else if (received_ > kMaxHandshakeBytes) {
        fail("it sent too much before it had proven its key");
    }
}

bool Seal::hasInput() const {
    return inEnd_ > inBegin_ || ::SSL_has_pending(ssl_.get()) == 1;
}

std::size_t Seal::open(std::span<std::byte> to) {
    if (!ready_ || !fault_.empty()) {
        return 0;
    }
    std::size_t count = 0;
    ::ERR_clear_error();
    const int result = ::SSL_read_ex(ssl_.get(), to.data(), to.size(), &count);
    if (result == 1) {
        return count;
    }
    switch (::SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
        break;
    case SSL_ERROR_ZERO_RETURN:
        fail("the peer closed the connection");
        break;
    default:
        fail("its data was altered on the way");
        break;
    }
    return 0;
}

void Seal::sealRecord(const std::byte* bytes, std::size_t size) {
    if (++records_ == kRecordsPerKey) {
        records_ = 0;
        ::SSL_key_update(ssl_.get(), SSL_KEY_UPDATE_NOT_REQUESTED);
    }
    std::size_t written = 0;
    ::ERR_clear_error();
    if (::SSL_write_ex(ssl_.get(), bytes, size, &written) != 1 || written != size) {
        fail("the data could not be sealed");
    }
}

void Seal::seal(const iovec* pieces, std::size_t bytes) {
    std::size_t used = 0; // of the first piece
    while (bytes > 0 && fault_.empty()) {
        const std::size_t size = std::min(bytes, kRecordBytes);
        const auto* from = static_cast<const std::byte*>(pieces->iov_base) + used;
        if (pieces->iov_len - used >= size) {
            used += size;
            sealRecord(from, size);
        } else {
            record_.clear();
            while (record_.size() < size) {
                from = static_cast<const std::byte*>(pieces->iov_base) + used;
                const std::size_t part = std::min(pieces->iov_len - used, size - record_.size());
                record_.insert(record_.end(), from, from + part);
                used += part;
                if (used == pieces->iov_len) {
                    ++pieces;
                    used = 0;
                }
            }
            sealRecord(record_.data(), size);
        }
        bytes -= size;
    }
}

void Seal::sent(std::size_t bytes) {
    outBegin_ += bytes;
    if (outBegin_ == out_.size()) {
        out_.clear();
        outBegin_ = 0;
    }
}

} // namespace Corvid::detail
