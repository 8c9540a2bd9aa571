#pragma once

#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace Orvel::Test {

/// An event's own values, in the order of its fields.
inline std::string values(const Corvid::Event& event) {
    std::ostringstream text;
    if (const auto* transform = dynamic_cast<const TransformEvent*>(&event)) {
        text << transform->position.x << ' ' << transform->position.y << ' '
             << transform->position.z << ' ' << transform->rotation.x << ' '
             << transform->rotation.y << ' ' << transform->rotation.z << ' '
             << transform->rotation.w;
    } else if (const auto* create = dynamic_cast<const CreateEmitterEvent*>(&event)) {
        text << testing::PrintToString(create->labels);
    } else if (const auto* connection = dynamic_cast<const EmitterConnectionEvent*>(&event)) {
        text << connection->sourceId;
    } else if (const auto* hull = dynamic_cast<const EmitterHullEvent*>(&event)) {
        text << hull->maxBack << ' ' << hull->maxFront << ' ' << hull->minBack << ' '
             << hull->minFront;
    } else if (const auto* param = dynamic_cast<const EmitterParamEvent*>(&event)) {
        text << param->gain << ' ' << param->paramValue << ' ' << param->paramFlag;
    } else if (const auto* sourceParam = dynamic_cast<const SourceParamEvent*>(&event)) {
        text << sourceParam->pitch << ' ' << sourceParam->loop;
    } else if (const auto* data = dynamic_cast<const SourceDataEvent*>(&event)) {
        text << data->fileName << ' ' << data->dataSize() << ' '
             << std::string(reinterpret_cast<const char*>(data->data()), data->dataSize());
    } else if (const auto* duration = dynamic_cast<const SourceDurationEvent*>(&event)) {
        text << duration->duration;
    }
    return text.str();
}

} // namespace Orvel::Test
