#include <Show/monitor/SceneJson.h>

#include <Show/monitor/JsonWriter.h>
#include <Show/monitor/MonitorBackend.h>

#include <Corvid/URL.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace Show {

namespace {

const char* stateName(Orvel::WorldPart::State state) {
    switch (state) {
    case Orvel::WorldPart::PLAY:
        return "play";
    case Orvel::WorldPart::PAUSE:
        return "pause";
    case Orvel::WorldPart::STOP:
        return "stop";
    case Orvel::WorldPart::NONE:
        break;
    }
    return "none";
}

/// Without a user's name and password, which are nobody else's business.
std::string publicUrl(std::string text) {
    const auto scheme = text.find("://");
    if (scheme != std::string::npos) {
        const auto begin = scheme + 3;
        const auto at = text.substr(0, text.find_first_of("/?#", begin)).rfind('@');
        if (at != std::string::npos && at >= begin) {
            text.erase(begin, at + 1 - begin);
        }
    }
    return text;
}

void writePlace(JsonWriter& json, const Orvel::Vec3f& position, const Orvel::Quaternion& rotation) {
    json.field("position", {position.x, position.y, position.z});
    json.field("rotation", {rotation.x, rotation.y, rotation.z, rotation.w});
}

void write(JsonWriter& json, const Orvel::Source& source, const MonitorBackend& monitor) {
    json.open('{').field("id", source.id()).field("state", stateName(source.state()));
    json.field("name", monitor.soundName(source.id()));
    switch (source.dataKind()) {
    case Orvel::Source::URL_SD:
        json.field("data", "url");
        json.field("url", source.url() == nullptr ? "" : publicUrl(source.url()->text()));
        break;
    case Orvel::Source::PCM_SD:
        json.field("data", "samples").field("rate", source.sampleRate());
        json.field("bits", source.bitsPerSample()).field("channels", source.channels());
        json.field("bytes", source.data().size());
        break;
    case Orvel::Source::NO_SD:
        json.field("data", "none");
        break;
    }
    json.field("loop", source.loop()).field("pitch", source.pitch());
    json.field("duration", MonitorBackend::lengthOf(source));
    json.field("emitters", source.connectedEmitters().size()).close('}');
}

bool isFinite(const Orvel::Hull& hull) {
    return std::ranges::all_of(Orvel::kHullExtents, [&hull](const Orvel::HullExtent& extent) {
        return std::isfinite(hull.*extent.value);
    });
}

void write(
    JsonWriter& json, const Orvel::Emitter& emitter, MonitorBackend& monitor,
    const Hearings& hearings) {
    json.open('{').field("id", emitter.id()).field("state", stateName(emitter.state()));
    json.field("over", monitor.isOver(emitter));
    const auto heard = hearings.find(emitter.id());
    if (heard != hearings.end()) {
        json.field("hearing", nameOf(heard->second.hearing));
        json.field("level", decibelsOf(heard->second.level));
    } else {
        json.key("hearing").null().key("level").null();
    }
    if (emitter.source() != nullptr) {
        json.field("source", emitter.source()->id());
    } else {
        json.key("source").null();
    }
    writePlace(json, emitter.position(), emitter.rotation());
    json.key("hull").open('{');
    for (const auto& [name, extent] : Orvel::kHullExtents) {
        json.field(name, emitter.hull().*extent);
    }
    json.close('}').key("reach");
    if (isFinite(emitter.hull())) {
        const Orvel::Reach reach = Orvel::reachOf(emitter.hull());
        json.open('{').field("full", reach.full).field("softest", reach.softest).close('}');
    } else {
        json.null();
    }
    json.field("radius", emitter.radius()).key("object");
    if (const MonitorBackend::Object* object = monitor.object(emitter.id())) {
        json.open('{').field("name", object->name).field("unit", object->unit).close('}');
    } else {
        json.null();
    }
    json.field("gain", emitter.gain()).field("spatial", emitter.paramFlag());
    json.field("value", emitter.paramValue()).key("labels").open('[');
    const std::vector<std::string>& labels = emitter.labels();
    const std::size_t shown = std::min(labels.size(), SceneJson::kMaxLabels);
    for (std::size_t i = 0; i < shown; ++i) {
        json.value(labels[i]);
    }
    json.close(']').field("labelsLeftOut", labels.size() - shown).close('}');
}

} // namespace

bool SceneJson::operator()(std::string& more) {
    constexpr std::size_t kUsualBytes = 370; // of an emitter
    std::size_t left = kMaxPieceParts;
    more.reserve(more.size() + kMaxPieceParts * kUsualBytes);
    JsonWriter json(more, continues_);
    const auto begin = [this, &json](Step step, const char* name) {
        step_ = step;
        lastId_ = std::numeric_limits<int>::min();
        json.key(name).open('[');
    };
    const auto writePart = [&](const auto& part) {
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(part)>, Orvel::Emitter>) {
            write(json, part, *monitor_, *hearings_);
        } else {
            write(json, part, *monitor_);
        }
    };
    // Goes on behind the last id that was written, whatever has come and gone since.
    const auto list = [&](const auto& parts) {
        auto part = parts.upper_bound(lastId_);
        for (; part != parts.end() && left > 0 && more.size() + json.omitted() < kMaxPieceBytes;
             ++part, --left) {
            writePart(*part->second);
            lastId_ = part->first;
        }
        continues_ = json.continues();
        return part == parts.end();
    };
    Orvel::World& world = monitor_->world();
    if (step_ == Step::Head) {
        json.open('{')
            .field("instance", monitor_->instance())
            .field("seconds", monitor_->seconds());
        json.field("enabled", world.enabled()).field("spatialize", world.spatialize());
        json.key("listener").open('{');
        writePlace(json, world.listenerPosition(), world.listenerRotation());
        json.close('}');
        hearings_ = std::make_shared<const Hearings>(hearingsOf(world));
        begin(Step::Sources, "sources");
    }
    if (step_ == Step::Sources && list(world.sources())) {
        json.close(']');
        begin(Step::Emitters, "emitters");
    }
    if (step_ != Step::Emitters || !list(world.emitters())) {
        return true;
    }
    json.close(']').close('}');
    return false;
}

} // namespace Show
