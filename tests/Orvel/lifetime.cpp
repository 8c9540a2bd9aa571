// Lifetime of scenes in a process: lifetime CASE LIBRARY. Loads the library with dlopen, as plug-in
// hosts and scripting languages do, with an OpenAL device, a client with its thread and a connected
// server.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const char* library;
void* loaded;
void* world;
void* server;

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "not so: %s\n", what);
        std::_Exit(1);
    }
}

/// Calls a function of the library; the arguments must have exactly its types, handles aside, which
/// are pointers of all kinds.
template <class Result, class... Arguments>
__attribute__((no_sanitize("undefined"))) Result call(const char* name, Arguments... arguments) {
    void* address = dlsym(loaded, name);
    require(address != nullptr, name);
    Result (*function)(Arguments...) = nullptr;
    std::memcpy(&function, &address, sizeof function);
    return function(arguments...);
}

void load() {
    loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    require(loaded != nullptr, "the library can be loaded");
    call<bool>("orvel_log_set_level", 1);
}

void use() {
    constexpr const char* kNone = nullptr;
    server = call<void*>("orvel_server_create");
    const auto port = call<unsigned short>("orvel_server_port", server);
    call<bool>("orvel_server_set_interfaces", server, "127.0.0.1");
    call<bool>("orvel_server_set_multicast", server, "239.255.77.90", port, 0);
    world = call<void*>("orvel_world_create");
    call<void*>("orvel_world_add_backend", world, "default", kNone);
    const std::string where = "interfaces=127.0.0.1 ttl=0 port=" + std::to_string(port);
    void* client = call<void*>("orvel_world_add_backend", world, "client", where.c_str());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (call<std::size_t>("orvel_backend_connections", client) == 0) {
        require(std::chrono::steady_clock::now() < deadline, "client and server meet");
        call<int>("orvel_server_poll", server, 0.01);
    }
    void* emitter = call<void*>("orvel_emitter_create", world, kNone, 0);
    require(call<bool>("orvel_emitter_set_state", emitter, 1), "an emitter plays");
}

void destroy() {
    require(call<bool>("orvel_world_destroy", world), "the world can be destroyed");
    require(call<bool>("orvel_server_destroy", server), "the server can be destroyed");
}

/// Runs a part in a child process, which must exit normally.
template <class Part>
void inChild(const char* what, Part part) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        part();
        std::exit(0);
    }
    int status = 1;
    require(child > 0 && waitpid(child, &status, 0) == child && status == 0, what);
}

void unloads() {
    for (int round = 0; round < 5; ++round) {
        load();
        use();
        destroy();
        dlclose(loaded);
    }
}

void forks() {
    load();
    use();
    inChild("a child can end while its parent's scene is alive", [] {});
    inChild("a child can have a scene of its own", [] {
        use();
        destroy();
    });
    void* emitter =
        call<void*>("orvel_emitter_create", world, static_cast<const char*>(nullptr), 9);
    for (int i = 0;
         call<void*>("orvel_emitter_find", call<void*>("orvel_server_world", server), 9) == nullptr;
         ++i) {
        require(emitter != nullptr && i < 1000, "the parent's scene goes on");
        call<int>("orvel_server_poll", server, 0.01);
    }
    destroy();
}

void exits() {
    for (int round = 0; round < 5; ++round) {
        inChild("a process can end with its scenes alive", [] {
            load();
            use();
        });
        inChild("a process can unload the library and end with its scenes alive", [] {
            load();
            use();
            dlclose(loaded);
        });
    }
}

} // namespace

int main(int /*argc*/, char** argv) {
    library = argv[2];
    const std::string name = argv[1];
    name == "unloads" ? unloads() : name == "forks" ? forks() : exits();
}
