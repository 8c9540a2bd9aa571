#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// How long a source plays, in seconds, as a server measured it: CmdSetSourceDuration, from
/// server to client.
class ORVEL_EXPORT SourceDurationEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    float duration = 0.0F;

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
