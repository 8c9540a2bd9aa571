// A frame loop with the vectors and quaternions of glm: a camera circles a fountain, and the
// listener is at the camera. Hosts with other types write two functions like those at the top.
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <glm/gtc/quaternion.hpp>
#include <glm/mat3x3.hpp>
#include <glm/vec3.hpp>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <thread>
#include <vector>

namespace {

Orvel::Vec3f toOrvel(const glm::vec3& v) {
    return {v.x, v.y, v.z};
}

Orvel::Quaternion toOrvel(const glm::quat& q) {
    return {q.x, q.y, q.z, q.w}; // independent of the order in which glm stores them
}

// One second of rushing water: noise, 16 bit, mono.
std::vector<unsigned char> water(unsigned rate) {
    std::vector<unsigned char> bytes;
    unsigned random = 1;
    for (unsigned i = 0; i < rate; ++i) {
        random = random * 1664525U + 1013904223U;
        const unsigned sample = (random >> 19U) - 4096U; // -4096 to 4095
        bytes.push_back(static_cast<unsigned char>(sample & 0xFFU));
        bytes.push_back(static_cast<unsigned char>(sample >> 8U & 0xFFU));
    }
    return bytes;
}

} // namespace

int main() {
    constexpr int kFramesPerSecond = 60;
    constexpr int kFrames = 3 * kFramesPerSecond;
    constexpr unsigned kRate = 44100;

    Orvel::World world;
    world.addBackend("default", "");

    Orvel::Source* rushing = world.createSource();
    const std::vector<unsigned char> samples = water(kRate);
    rushing->setData(kRate, 16, 1, samples.data(), static_cast<unsigned>(samples.size()));
    rushing->setParam(true, 1.0F); // a loop
    const glm::vec3 fountainPlace(0.0F, 0.0F, -3.0F);
    Orvel::Emitter* fountain = world.createEmitter();
    const Orvel::Vec3f place = toOrvel(fountainPlace);
    fountain->setTransform(&place, nullptr);
    fountain->setHull(50.0F, 50.0F, 1.0F, 1.0F);
    fountain->setSource(rushing);
    fountain->setState(Orvel::Emitter::PLAY);

    const auto begin = std::chrono::steady_clock::now();
    bool ahead = true;
    for (int frame = 0; frame < kFrames; ++frame) {
        // The camera flies a circle around the fountain and always looks at it. glm's cameras look
        // along -z with +y up, like Orvel's listener, so no conversion is needed.
        const float angle = 2.0F * std::numbers::pi_v<float> * static_cast<float>(frame) / kFrames;
        const glm::vec3 camera =
            fountainPlace + 5.0F * glm::vec3(std::sin(angle), 0.2F, std::cos(angle));
        const glm::quat turn =
            glm::quatLookAt(glm::normalize(fountainPlace - camera), glm::vec3(0.0F, 1.0F, 0.0F));
        world.setListenerTransform(toOrvel(camera), toOrvel(turn));
        world.update(); // once per frame: lets back ends do work of their own

        const Orvel::Vec3f look = toOrvel(turn).rotate({0.0F, 0.0F, -1.0F});
        const glm::vec3 to = glm::normalize(fountainPlace - camera);
        ahead = ahead && glm::dot(to, glm::vec3(look.x, look.y, look.z)) > 0.999F;
        if (frame % (kFramesPerSecond / 2) == 0) {
            std::printf(
                "camera at %5.2f %5.2f %5.2f\n", static_cast<double>(camera.x),
                static_cast<double>(camera.y), static_cast<double>(camera.z));
        }
        std::this_thread::sleep_until(
            begin + std::chrono::seconds(1) * (frame + 1) / kFramesPerSecond);
    }
    world.clearWorld();
    world.deleteAllBackends();
    return ahead ? 0 : 1;
}
