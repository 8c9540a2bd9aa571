#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The parameters of a source, see Source::setParam(): CmdSetSourceParam.
class ORVEL_EXPORT SourceParamEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    void setParam(bool loops, float factor) {
        loop = loops;
        pitch = factor;
    }

    float pitch = 1.0F;
    bool loop = false;

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
