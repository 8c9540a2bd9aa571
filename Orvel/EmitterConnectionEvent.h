#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The source that an emitter plays from now on: CmdSetEmitterConnection.
class ORVEL_EXPORT EmitterConnectionEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    short sourceId = 0; ///< 0: none

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
