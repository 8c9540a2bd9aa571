// The cost of a change of an emitter through the back end "openal", against the same AL calls, on
// the same AL sources in the same context.
#include "Ratio.h"
#include "Sound.h"

#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OALBackend.h>
#include <Orvel/OwningWorld.h>

#include <AL/al.h>
#include <AL/alc.h>
#include <array>

namespace {

struct Scene {
    explicit Scene(int emitterCount) {
        auto* backend = dynamic_cast<Orvel::OALBackend*>(world.addBackend("openal", ""));
        if (backend == nullptr || !backend->working()) {
            OrvelBench::fail("the back end \"openal\" opens no device with the null driver");
        }
        context = alcGetCurrentContext(); // the back end has selected its own
        Orvel::Source* source = world.createSource();
        OrvelBench::setSamples(*source, OrvelBench::tone());
        source->setParam(true, 1.0F);
        for (int i = 0; i < emitterCount; ++i) {
            Orvel::Emitter* emitter = world.createEmitter();
            emitter->setSource(source);
            emitters.push_back(emitter);
        }
        source->setState(Orvel::WorldPart::PLAY);

        // AL cannot list its sources, but their names are small numbers.
        for (ALuint name = 1; name < 10000 && names.size() < emitters.size(); ++name) {
            if (alIsSource(name) == AL_TRUE) {
                names.push_back(name);
            }
        }
        if (names.size() != emitters.size()) {
            OrvelBench::fail("not every emitter has an AL source");
        }
        for (const ALuint name : names) {
            ALint state = 0;
            alGetSourcei(name, AL_SOURCE_STATE, &state);
            if (state != AL_PLAYING) {
                OrvelBench::fail("not every emitter plays");
            }
        }
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// The check before the calls of one change.
    void select() const {
        if (alcGetCurrentContext() != context) {
            alcMakeContextCurrent(context);
        }
    }
    static void check() {
        if (alGetError() != AL_NO_ERROR) {
            OrvelBench::fail("a direct AL call was refused");
        }
    }

    Orvel::OwningWorld<> world;
    std::vector<Orvel::Emitter*> emitters;
    std::vector<ALuint> names;
    ALCcontext* context = nullptr;
};

/// A value that alternates, so that consecutive changes differ.
class Alternating {
public:
    float next() {
        value_ = 3.0F - value_; // 1, 2, 1, 2
        return value_;
    }

private:
    float value_ = 2.0F;
};

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::isolateOpenAL();
    OrvelBench::Report report("Changes through \"openal\" against direct AL calls", argc, argv);
    Orvel::Log::the().setLevel(Orvel::Log::Level::Warning);

    for (const int count : {1, 32, 256}) {
        Scene scene(count);
        Alternating value;
        const auto run = [&](const char* name, auto&& change, auto&& direct) {
            const auto all = [&value](auto& parts, auto& call) {
                const float v = value.next();
                for (auto part : parts) {
                    call(part, v);
                }
            };
            report.row(
                std::string(name) + ", " + std::to_string(count) + " emitters",
                report.compare(
                    count, [&] { all(scene.emitters, change); }, [&] { all(scene.names, direct); }),
                OrvelBench::kNanoseconds, {Aim::Of::Ratio, 1.03});
        };
        run(
            "transform",
            [](Orvel::Emitter* emitter, float v) {
                const Orvel::Vec3f position{v, 0.0F, -v};
                emitter->setTransform(&position, nullptr);
            },
            [&](ALuint name, float v) {
                scene.select();
                alSourcefv(name, AL_POSITION, std::array{v, 0.0F, -v}.data());
                alSourcei(name, AL_SOURCE_RELATIVE, AL_FALSE);
                Scene::check();
            });
        run(
            "hull", [](Orvel::Emitter* emitter, float v) { emitter->setHull(50.0F, 50.0F, v, v); },
            [&](ALuint name, float v) {
                scene.select();
                alSourcefv(name, AL_DIRECTION, std::array{1.0F, 0.0F, 0.0F}.data());
                alSourcef(name, AL_CONE_INNER_ANGLE, 360.0F);
                alSourcef(name, AL_CONE_OUTER_ANGLE, 360.0F);
                alSourcef(name, AL_REFERENCE_DISTANCE, v);
                alSourcef(name, AL_MAX_DISTANCE, 50.0F);
                alSourcef(name, AL_ROLLOFF_FACTOR, 1.0F);
                Scene::check();
            });
        run(
            "param", [](Orvel::Emitter* emitter, float v) { emitter->setParam(true, 0.0F, v); },
            [&](ALuint name, float v) {
                scene.select();
                alSourcef(name, AL_GAIN, v);
                Scene::check();
            });
    }
    return report.finish();
}
