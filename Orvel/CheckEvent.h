#pragma once

#include <Orvel/CommandEvent.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// Hashes of some parts of a client's scene, for servers that compare theirs: CmdCheckParts. It is
/// sent in the order of the changes, while a server asks for it with CmdAskChecks. A sweep over the
/// scene is several of these.
class ORVEL_EXPORT CheckEvent : public EventOf<CheckEvent, CommandEvent> {
public:
    /// Flag for Corvid::MultiCommunicator::setFeatures(): a client that sends this event when
    /// asked, or a server that understands it and CmdAskDifferences.
    static constexpr std::uint16_t kFeature = 4;
    /// Limit of the parts in one event; more are refused.
    static constexpr std::size_t kMaxParts = 512;

    enum class Kind : std::uint8_t {
        Switch = 0, ///< whether the scene is enabled
        Listener = 1,
        Source = 2,
        Emitter = 3,
    };
    /// How the client's part is. docs/protocol.md defines the hash.
    struct Part {
        Kind kind = Kind::Switch;
        std::uint8_t rounding = 0; ///< how the transform was rounded for the hash
        short id = 0;              ///< 0 for those that are no part
        std::uint64_t hash = 0;
    };

    void getFields() override;

    void clear() { bytes_.clear(); }
    void add(const Part& part);
    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size() / kPartBytes; }
    [[nodiscard]] Part at(std::size_t index) const;

    /// The place in the sweep; 0 begins one.
    unsigned int number = 0;
    /// Whether it ends the sweep.
    bool isLast = false;
    /// The event has all of the client's emitters with ids from `first` to `last`; none if `last`
    /// is less.
    short first = 1;
    short last = 0;

    static auto fields(auto& event) {
        return std::tie(event.number, event.isLast, event.first, event.last, event.bytes_);
    }
    static Corvid::EventType _type;

private:
    static constexpr std::size_t kPartBytes = 12;

    std::vector<unsigned char> bytes_;
};

} // namespace Orvel
