// The C interface: misuse results in false, null or -1 with an error text, and results equal those
// of the C++ interface.
#include "support/Capture.h"
#include "support/Loopback.h"

#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/orvel.h>

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

namespace Orvel::Test {

namespace {

struct ThrowingBackend : SilentBackend {
    using SilentBackend::SilentBackend;
    void createEmitter(Emitter& /*emitter*/) override { throw std::runtime_error("no more room"); }
    void createSource(Source& /*source*/) override { throw 7; } // NOLINT: no text
    [[nodiscard]] BackendState state() const override {
        BackendState state;
        state.working = false;
        state.device = "own";
        state.refusedEmitters = {3, 4};
        return state;
    }
};

template <class Result>
void expectRefusal(Result result, const std::string& function, const std::string& reason) {
    const std::string error = orvel_last_error();
    if constexpr (std::is_same_v<Result, int>) {
        EXPECT_LT(result, 0) << function << ", " << reason;
    } else {
        EXPECT_FALSE(result) << function << ", " << reason;
    }
    EXPECT_EQ(error.find(function + ": "), 0U) << error;
    EXPECT_NE(error.find(reason), std::string::npos) << error;
}
#define ORVEL_REFUSES(function, reason, ...) expectRefusal(function(__VA_ARGS__), #function, reason)

TEST(CInterface, TurnsEveryMisuseIntoAnError) {
    orvel_world* world = orvel_world_create();
    orvel_world* other = orvel_world_create();
    orvel_server* server = orvel_server_create();
    orvel_source* source = orvel_source_create(world, 5);
    orvel_source* foreign = orvel_source_create(other, 0);
    orvel_emitter* emitter = orvel_emitter_create(world, nullptr, 6);
    orvel_backend* silent = orvel_world_add_backend(world, "silent", nullptr);
    ASSERT_TRUE(server != nullptr && source != nullptr && emitter != nullptr && silent != nullptr);
    std::array<float, 2> frame{};
    ORVEL_REFUSES(orvel_world_update, "the world is null", nullptr);
    ORVEL_REFUSES(orvel_server_poll, "the server is null", nullptr, 0.0);
    ORVEL_REFUSES(orvel_world_add_backend, "\"loud\"; the kinds are default, ", world, "loud", "");
    ORVEL_REFUSES(orvel_source_create, "already a source with the id 5", world, 5);
    ORVEL_REFUSES(orvel_emitter_create, "already an emitter with the id 6", world, "", 6);
    ORVEL_REFUSES(orvel_source_set_url, "\"http://[bad\"", source, "http://[bad");
    ORVEL_REFUSES(orvel_source_set_file, "\"/none\" does not exist", source, "/none", false);
    ORVEL_REFUSES(orvel_source_set_data, "the data is null", source, 8000, 16, 1, nullptr, 2);
    ORVEL_REFUSES(orvel_source_set_data, "24 bit", source, 8000, 24, 1, "abc", 3);
    ORVEL_REFUSES(orvel_source_set_data, "whole number of frames", source, 8000, 16, 1, "abc", 3);
    ORVEL_REFUSES(
        orvel_source_set_data, "below 4 GiB", source, 8000, 8, 1, "abc", (1ULL << 32U) + 2);
    ORVEL_REFUSES(orvel_emitter_set_state, "no state 4", emitter, 4);
    ORVEL_REFUSES(orvel_emitter_set_source, "another world", emitter, foreign);
    ORVEL_REFUSES(orvel_backend_render, "\"loopback\"", silent, frame.data(), 1);
    ORVEL_REFUSES(orvel_world_destroy, "orvel_server_destroy", orvel_server_world(server));
    ORVEL_REFUSES(orvel_server_set_multicast, "10.0.0.1", server, "10.0.0.1", 5, 1);
    ORVEL_REFUSES(orvel_server_set_interfaces, "\"127.0.0\"", server, "lo, 127.0.0");
    ORVEL_REFUSES(orvel_server_poll, "seconds", server, std::numeric_limits<double>::quiet_NaN());
    ORVEL_REFUSES(orvel_log_set_level, "no level 6", 6);
    ORVEL_REFUSES(orvel_server_create_at, "a free port", nullptr, orvel_server_port(server));
    ORVEL_REFUSES(orvel_server_create_at, "no IPv4 address", "here", 0);
    // Handles of another kind, addresses, and handles of other slots, uses and kinds.
    int local = 0;
    ORVEL_REFUSES(
        orvel_world_update, "the source is given as the world",
        reinterpret_cast<orvel_world*>(source));
    ORVEL_REFUSES(orvel_world_update, "is gone", reinterpret_cast<orvel_world*>(&local));
    for (const std::uintptr_t number : {std::uintptr_t{1}, UINTPTR_MAX, UINTPTR_MAX >> 1U}) {
        void* made = reinterpret_cast<void*>(number); // NOLINT: not an address
        ORVEL_REFUSES(orvel_world_update, "is gone", static_cast<orvel_world*>(made));
    }
    std::thread([] { EXPECT_STREQ(orvel_last_error(), ""); }).join(); // one per thread
    EXPECT_EQ(orvel_source_find(world, 99), nullptr);
    EXPECT_TRUE(orvel_world_destroy(nullptr) && orvel_server_destroy(nullptr));
    EXPECT_TRUE(orvel_world_destroy(world) && orvel_world_destroy(other));
    EXPECT_TRUE(orvel_server_destroy(server));
}

TEST(CInterface, RecognisesTheHandleOfWhatIsGone) {
    const LogCapture quiet;
    for (int round = 0; round < 50; ++round) { // slots and addresses are used again
        orvel_world* world = orvel_world_create();
        orvel_source* source = orvel_source_create(world, 1);
        orvel_emitter* emitter = orvel_emitter_create(world, nullptr, 2);
        orvel_backend* backend = orvel_world_add_backend(world, "silent", nullptr);
        orvel_emitter_set_source(emitter, source);
        ASSERT_TRUE(
            orvel_source_find(world, 1) == source && orvel_emitter_source(emitter) == source);
        orvel_source_destroy(source);
        orvel_source* next = orvel_source_create(world, 1);
        ASSERT_TRUE(next != source && orvel_is_alive(next) && !orvel_is_alive(source));
        ORVEL_REFUSES(orvel_source_set_param, "the source is gone", source, true, 1.0F);
        ORVEL_REFUSES(orvel_emitter_set_source, "the source is gone", emitter, source);
        orvel_world_clear(world);
        ORVEL_REFUSES(orvel_emitter_set_hull, "the emitter is gone", emitter, 1, 1, 1, 1);
        if (round % 2 == 0) {
            orvel_backend_destroy(backend);
            ORVEL_REFUSES(orvel_backend_destroy, "the back end is gone", backend);
        }
        orvel_world_destroy(world);
        ORVEL_REFUSES(orvel_backend_working, "the back end is gone", backend);
        ORVEL_REFUSES(orvel_world_destroy, "the world is gone", world);
    }
    // Two threads with a world each share the table of handles.
    const auto use = [] {
        for (int round = 0; round < 20; ++round) {
            orvel_world* world = orvel_world_create();
            for (int i = 0; i < 20; ++i) {
                orvel_emitter* emitter = orvel_emitter_create(world, nullptr, 0);
                EXPECT_TRUE(orvel_emitter_set_start_offset(emitter, i));
                EXPECT_EQ(orvel_emitter_start_offset(emitter), i);
            }
            EXPECT_TRUE(orvel_world_destroy(world));
        }
    };
    std::thread other(use);
    use();
    other.join();
}

TEST(CInterface, DestroysNothingInTheMiddleOfAnOperation) {
    static orvel_world* world; // the callback's
    static orvel_source* source;
    static int refused;
    world = orvel_world_create();
    source = orvel_source_create(world, 1);
    orvel_log_set_callback(
        [](orvel_level /*level*/, const char* /*text*/, void* /*user*/) {
            refused += static_cast<int>(!orvel_source_destroy(source));
            refused += static_cast<int>(!orvel_world_clear(world));
            refused += static_cast<int>(!orvel_world_destroy(world));
        },
        nullptr);
    orvel_source_create(world, 1); // logs that there is one
    orvel_log_set_callback(nullptr, nullptr);
    EXPECT_EQ(refused, 3);
    EXPECT_TRUE(orvel_source_destroy(source) && orvel_world_destroy(world));
}

TEST(CInterface, LetsNoExceptionOfABackEndThrough) {
    const BackendType type("throwing", [](World& world, const char* params) -> Backend* {
        return new ThrowingBackend(world, params);
    });
    orvel_world* world = orvel_world_create();
    orvel_backend* backend = orvel_world_add_backend(world, "throwing", "");
    ASSERT_NE(backend, nullptr);
    EXPECT_FALSE(orvel_backend_working(backend)); // an own kind says so as the library's do
    EXPECT_STREQ(orvel_backend_device(backend), "own");
    int id = 0;
    EXPECT_EQ(orvel_backend_refused(backend, &id, 1), 2U);
    EXPECT_EQ(id, 3);
    ORVEL_REFUSES(orvel_emitter_create, "no more room", world, "", 0);
    ORVEL_REFUSES(orvel_source_create, "unknown exception", world, 0);
    EXPECT_TRUE(orvel_world_destroy(world));
}

TEST(CInterface, KeepsTheHalfOfATransformThatIsNull) {
    orvel_world* world = orvel_world_create();
    orvel_emitter* emitter = orvel_emitter_create(world, " front, back ", 0);
    const std::array<float, 3> place{1, 2, 3};
    const std::array<float, 4> turn{0, 1, 0, 0};
    orvel_world_set_listener(world, place.data(), nullptr);
    orvel_world_set_listener(world, nullptr, turn.data());
    orvel_emitter_set_transform(emitter, nullptr, turn.data());
    orvel_emitter_set_transform(emitter, place.data(), nullptr);
    std::array<float, 3> position{};
    std::array<float, 4> rotation{};
    orvel_world_listener(world, position.data(), rotation.data());
    EXPECT_TRUE(position == place && rotation == turn);
    position = {};
    orvel_emitter_transform(emitter, position.data(), nullptr);
    orvel_emitter_transform(emitter, nullptr, rotation.data());
    EXPECT_TRUE(position == place && rotation == turn);
    EXPECT_STREQ(orvel_emitter_labels(emitter), "front,back");
    orvel_world_destroy(world);
}

TEST(CInterface, AServersSourcesSurviveTheirClientsButNotAReset) {
    const LogCapture quiet;
    orvel_server* server = orvel_server_create();
    orvel_world* heard = orvel_server_world(server);
    int resets = 0;
    orvel_server_set_reset_callback(
        server,
        [](orvel_server* which, void* user) {
            ++*static_cast<int*>(user);
            orvel_source_create(orvel_server_world(which), 1);
            EXPECT_FALSE(orvel_server_destroy(which)); // it is still in use further up
            EXPECT_LT(orvel_server_poll(which, 0.0), 0);
        },
        &resets);
    orvel_server_set_multicast(server, "239.255.77.90", testPort(), 0);
    orvel_world* scene = orvel_world_create();
    const std::string params = "deferred=yes ttl=0 port=" + std::to_string(testPort());
    orvel_backend* client = orvel_world_add_backend(scene, "client", params.c_str());
    orvel_source* source = orvel_source_create(scene, 1);
    orvel_emitter* emitter = orvel_emitter_create(scene, nullptr, 2);
    orvel_source_set_param(source, true, 2.0F);
    orvel_emitter_set_source(emitter, source);
    orvel_emitter_set_state(emitter, ORVEL_PLAY);
    const auto step = [&] {
        EXPECT_GE(orvel_server_poll(server, 0.001), 0);
        orvel_world_update(scene);
    };
    const auto state = [&] { return orvel_source_state(orvel_source_find(heard, 1)); };
    ASSERT_TRUE(until([&] { return state() == ORVEL_PLAY; }, step));
    EXPECT_EQ(orvel_server_clients(server), 1U);
    EXPECT_EQ(orvel_backend_connections(client), 1U);
    EXPECT_EQ(orvel_emitter_source(orvel_emitter_find(heard, 2)), orvel_source_find(heard, 1));

    orvel_source* kept = orvel_source_find(heard, 1);
    EXPECT_EQ(orvel_source_pitch(kept), 2.0F);
    orvel_source_destroy(source);
    ASSERT_TRUE(until([&] { return state() == ORVEL_STOP; }, step));
    EXPECT_EQ(orvel_source_pitch(kept), 1.0F);
    EXPECT_EQ(orvel_source_find(heard, 1), kept);
    EXPECT_EQ(resets, 1);
    orvel_world_destroy(scene); // resets its servers
    EXPECT_TRUE(until(
        [&] { return resets == 2 && orvel_server_clients(server) == 0; },
        [&] { orvel_server_poll(server, 0.001); }));
    EXPECT_EQ(orvel_world_emitter_count(heard), 0U);
    orvel_server_destroy(server);
}

} // namespace

} // namespace Orvel::Test
