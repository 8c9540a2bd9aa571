#pragma once

#include <Show/monitor/ChangeRates.h>
#include <Show/player/PlayClock.h>
#include <Show/scene/ObjectNames.h>
#include <Show/scene/SceneSources.h>

#include <Corvid/PolledWebServer.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Source.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Show {

/// Shows its world to browsers and programs over HTTP: the kind "monitor". A page draws the scene
/// as it moves; /api/scene and /api/status provide it as JSON, /metrics for Prometheus
/// (docs/monitor.md).
///
/// Parameters: "address" (127.0.0.1), an address or name of this machine; "port" (33790, or a free
/// one if that is in use; 0: a free one); and "names", host names, separated by commas, that
/// browsers may use besides this machine's. There is no password: anyone who can reach the port can
/// see the page.
///
/// Everything happens inside update(), on the world's thread, in short pieces. If it cannot listen
/// it logs a warning and stays in the list without a page; isOpen() then returns false.
class MonitorBackend : public PlayClock, public SoundNames, public ObjectNames {
public:
    static constexpr const char* kDefaultPort = "33790";
    /// Fills in the answer of a page.
    using Fill = std::function<void(Corvid::ProtocolHTTP::Reply&)>;

    MonitorBackend(Orvel::World& world, const char* params);
    /// Adds one to a world; null if an address or name has an apostrophe.
    static MonitorBackend*
    add(Orvel::World& world, const std::string& address, std::optional<std::uint16_t> port,
        const std::vector<std::string>& hostNames);

    [[nodiscard]] bool isOpen() const { return server_->isOpen(); }
    /// Lets its page be that of a desk.
    void showDesk();
    /// For pages of other classes.
    [[nodiscard]] Corvid::PolledWebServer& server() const { return *server_; }
    /// Where a browser finds it, such as "http://127.0.0.1:33790/"; empty when it is not open.
    [[nodiscard]] std::string url() const;

    /// A random text that distinguishes this object from others at the same address.
    [[nodiscard]] const std::string& instance() const { return instance_; }
    /// Seconds since its creation, as of the last update() or change of a state.
    [[nodiscard]] double seconds() const { return seconds_; }
    [[nodiscard]] std::uint64_t updates() const { return updates_; }
    [[nodiscard]] const ChangeRates& rates() const { return rates_; }

    void setSoundName(int source, std::string name) override { names_[source] = std::move(name); }
    [[nodiscard]] std::string_view soundName(int source) const;
    /// An object of ADM-OSC.
    struct Object {
        std::string name;
        float unit; ///< scene units per normalised unit
    };
    void setObject(int emitter, std::string name, float unit) override {
        objects_.insert_or_assign(emitter, Object{std::move(name), unit});
    }
    void removeObject(int emitter) override { objects_.erase(emitter); }
    /// Null if ADM-OSC has said nothing about the emitter.
    [[nodiscard]] const Object* object(int emitter) const;
    /// The duration of a source at pitch 1, in seconds; 0 if unknown.
    [[nodiscard]] static double lengthOf(const Orvel::Source& source);
    /// Whether pages and metrics list a back end: any but the one by which a playback follows its
    /// sounds.
    [[nodiscard]] static bool isListed(const Orvel::Backend& backend);
    /// Whether an emitter plays a sound that has ended.
    [[nodiscard]] bool isOver(const Orvel::Emitter& emitter);

    bool update() override;
    Orvel::BackendType* type() override { return &_type; }
    /// The page and its server.
    [[nodiscard]] Orvel::BackendState state() const override;

    void resetBackend() override;
    void setEnabled() override;
    void setListenerTransform() override;
    void createSource(Orvel::Source& source) override;
    void destroySource(Orvel::Source& source) override;
    void setSourceData(Orvel::Source& source) override;
    void setSourceParam(Orvel::Source& source) override;
    void setSourceState(Orvel::Source& source) override;
    void createEmitter(Orvel::Emitter& emitter) override;
    void destroyEmitter(Orvel::Emitter& emitter) override;
    void setEmitterTransform(Orvel::Emitter& emitter) override;
    void setEmitterHull(Orvel::Emitter& emitter) override;
    void setEmitterParam(Orvel::Emitter& emitter) override;
    void setEmitterConnection(Orvel::Emitter& emitter) override;
    void setEmitterState(Orvel::Emitter& emitter) override;

    static Orvel::Backend* createMethod(Orvel::World& world, const char* params) {
        return new MonitorBackend(world, params);
    }
    static Orvel::BackendType _type;

private:
    using Clock = std::chrono::steady_clock;

    void add(const std::string& path, const char* type, Fill fill);
    void addFile(const std::string& path, std::string content);
    void addPages();
    /// Advances the clock to now.
    void pass();
    /// Listens there or, unless it must be `exactly` there, at any free port.
    void open(const std::string& address, std::uint16_t port, bool exactly);

    const Clock::time_point begin_ = Clock::now();
    const std::string instance_;
    double seconds_ = 0.0;
    std::uint64_t updates_ = 0;
    ChangeRates rates_;
    std::map<int, std::string> names_; // by source
    std::map<int, Object> objects_;    // by emitter; they survive a jump in the scene
    std::string token_;                // empty: none
    std::string address_;
    const std::unique_ptr<Corvid::PolledWebServer> server_ =
        std::make_unique<Corvid::PolledWebServer>();
};

} // namespace Show
