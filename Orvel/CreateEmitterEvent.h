#pragma once

#include <Orvel/CommandEvent.h>

#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// A new emitter with its labels: CmdCreateEmitter.
class ORVEL_EXPORT CreateEmitterEvent : public CommandEvent {
public:
    /// The most labels that are taken from a peer.
    static constexpr unsigned kMaxLabels = 65535;

    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    std::vector<std::string> labels;

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
