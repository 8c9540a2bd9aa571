#pragma once

/// @file
/// The C interface, for programs in C and in every language that can call it: the scene, its back
/// ends by name, the polled server, and the log. It is the C++ interface (World.h, Source.h,
/// Emitter.h, Server.h, Log.h, where the details are documented) behind opaque handles; C++
/// programs do not need it.
///
/// Errors: a function that can fail returns false, null or a negative number, and then
/// orvel_last_error() is one sentence with the cause, the subject and a remedy. A handle that is
/// null, whose object is gone, or that belongs to an object of another kind is such an error, never
/// a crash; getters return 0 or an empty text for it. No C++ exception leaves a function.
///
/// Ownership: orvel_world_destroy() and orvel_server_destroy() free everything that was created
/// through them: sources, emitters and back ends. An object goes by its own destroy function, by
/// orvel_world_clear(), with its world, or, in the world of a server, by a client: during a poll,
/// clients destroy emitters, and a reset destroys everything. Its handle is then an error for ever,
/// since no handle is given twice. Texts passed in are copied; returned texts live until the next
/// call of the same function on the same thread.
///
/// Threads: a world with all its parts is used by one thread at a time, and so are all OpenAL back
/// ends of a process together. The version, the last error, the log and orvel_is_alive() may be
/// used by any thread. Callbacks must return normally: neither an exception nor longjmp() may leave
/// them. Inside a callback nothing can be destroyed or polled, except that a reset callback may
/// destroy sources and emitters.
///
/// Units: right-handed axes, +x right, +y up, -z ahead at rest, in scene units; rotations are unit
/// quaternions x, y, z, w; gain is linear, 1 being the recorded level.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <orvel_export.h>

// NOLINTBEGIN(readability-identifier-naming): as is usual in C

#ifdef __cplusplus
extern "C" {
#endif

/// A scene with its listener and its back ends.
typedef struct orvel_world orvel_world;
/// A sound.
typedef struct orvel_source orvel_source;
/// A place from which a source is heard.
typedef struct orvel_emitter orvel_emitter;
/// Renders or forwards a scene.
typedef struct orvel_backend orvel_backend;
/// A sound server: a world that clients drive over the network.
typedef struct orvel_server orvel_server;

typedef enum orvel_state {
    ORVEL_NONE = 0, ///< never played
    ORVEL_PLAY = 1,
    ORVEL_PAUSE = 2,
    ORVEL_STOP = 3
} orvel_state;

typedef enum orvel_level {
    ORVEL_LEVEL_LOG = 0, ///< always written
    ORVEL_LEVEL_FATAL = 1,
    ORVEL_LEVEL_WARNING = 2,
    ORVEL_LEVEL_NOTICE = 3, ///< the default
    ORVEL_LEVEL_INFO = 4,
    ORVEL_LEVEL_DEBUG = 5
} orvel_level;

/// The version of the loaded library, such as "0.1.0". Static.
ORVEL_EXPORT const char* orvel_version(void);
/// A sentence about the latest failure on this thread; empty before the first. Never null. Success
/// does not change it.
ORVEL_EXPORT const char* orvel_last_error(void);
/// Sets that text, which is copied; null is an empty one. For libraries that are built on this one
/// and report in the same way.
ORVEL_EXPORT void orvel_set_last_error(const char* text);
/// Whether the object of a handle of any kind still exists; false for null.
ORVEL_EXPORT bool orvel_is_alive(const void* handle);

// The log

/// Receives one line of the log, including header and line end. `text` is valid only during the
/// call. Called on the thread that logs, with the log locked: it must not wait for another thread
/// that may log, nor set the callback.
typedef void (*orvel_log_callback)(orvel_level level, const char* text, void* user);

/// Passes each line to `callback` with `user`, for the whole process; null restores the default,
/// standard error. After this returns the former callback is not called any more. With a callback,
/// lines about loaded sounds go to the log too (ORVEL_LEVEL_DEBUG), instead of the standard
/// streams; for this it replaces the process's diagnostic sink (Diagnostic.h).
ORVEL_EXPORT bool orvel_log_set_callback(orvel_log_callback callback, void* user);
/// Writes lines up to this level, a value of orvel_level.
ORVEL_EXPORT bool orvel_log_set_level(int level);
ORVEL_EXPORT int orvel_log_level(void);

// Worlds

/// Creates an empty world without back ends.
ORVEL_EXPORT orvel_world* orvel_world_create(void);
/// Frees the world and everything in it. Null is ignored. Returns false, without effect, for the
/// world of a server, which is freed with its server.
ORVEL_EXPORT bool orvel_world_destroy(orvel_world* world);
/// Updates every back end; call it once per iteration of the host's loop.
ORVEL_EXPORT bool orvel_world_update(orvel_world* world);
/// Destroys all emitters and sources.
ORVEL_EXPORT bool orvel_world_clear(orvel_world* world);

/// Mutes the scene, which continues silently, or makes it audible; initially true.
ORVEL_EXPORT bool orvel_world_set_enabled(orvel_world* world, bool enabled);
ORVEL_EXPORT bool orvel_world_enabled(orvel_world* world);
/// Whether emitters are spatial; initially true. Takes effect at an emitter's next change of
/// transform or hull.
ORVEL_EXPORT bool orvel_world_set_spatialize(orvel_world* world, bool spatialize);
ORVEL_EXPORT bool orvel_world_spatialize(orvel_world* world);
/// Sets position (x, y, z) and rotation (x, y, z, w) of the listener. Null leaves that one
/// unchanged.
ORVEL_EXPORT bool
orvel_world_set_listener(orvel_world* world, const float* position, const float* rotation);
/// Gets position (x, y, z) and rotation (x, y, z, w); either may be null.
ORVEL_EXPORT bool orvel_world_listener(orvel_world* world, float* position, float* rotation);

/// Numbers of parts.
ORVEL_EXPORT size_t orvel_world_source_count(orvel_world* world);
ORVEL_EXPORT size_t orvel_world_emitter_count(orvel_world* world);
/// Number of parts. Stores the first `count` of their ids in `ids`, in ascending order; it may be
/// null if `count` is 0.
ORVEL_EXPORT size_t orvel_world_source_ids(orvel_world* world, int* ids, size_t count);
ORVEL_EXPORT size_t orvel_world_emitter_ids(orvel_world* world, int* ids, size_t count);

// Back ends

/// The names of all kinds of back ends, sorted, one per line.
ORVEL_EXPORT const char* orvel_backend_kinds(void);
/// Adds a back end by the name of its kind, such as "default" (this machine's sound device),
/// "voices" (the same with any number of sounds), "loopback" (rendering offline), "client"
/// (servers), "log" or "silent", with a parameter line
/// (docs/parameters.md; null is an empty one), and replays the current scene to it.
ORVEL_EXPORT orvel_backend*
orvel_world_add_backend(orvel_world* world, const char* kind, const char* params);
ORVEL_EXPORT bool orvel_backend_destroy(orvel_backend* backend);
/// The name of its kind; "openal" for "default".
ORVEL_EXPORT const char* orvel_backend_kind(orvel_backend* backend);
/// False for a back end that can do nothing, such as an OpenAL back end without a device.
ORVEL_EXPORT bool orvel_backend_working(orvel_backend* backend);
/// The sound device's name; empty without one. Valid until the next call on the same thread.
ORVEL_EXPORT const char* orvel_backend_device(orvel_backend* backend);
/// URL of the page that a back end serves; empty without one. Valid until the next call on the same
/// thread.
ORVEL_EXPORT const char* orvel_backend_page(orvel_backend* backend);
/// Number of emitters that a back end has voices for. Stores the limit in `allowed`, which may be
/// null; 0 if it is not known.
ORVEL_EXPORT size_t orvel_backend_voices(orvel_backend* backend, size_t* allowed);
/// Number of emitters that a back end cannot play. Stores the first `count` of their ids in `ids`,
/// in ascending order; it may be null if `count` is 0.
ORVEL_EXPORT size_t orvel_backend_refused(orvel_backend* backend, int* ids, size_t count);
/// The same for the emitters that play and wait for a voice, because others are louder.
ORVEL_EXPORT size_t orvel_backend_waiting(orvel_backend* backend, int* ids, size_t count);
/// How a back end plays an emitter.
typedef enum orvel_hearing {
    ORVEL_SILENT = 0,  ///< it does not play, or not yet
    ORVEL_MIXED = 1,   ///< it is heard
    ORVEL_WAITING = 2, ///< it plays, and louder ones have all voices
    ORVEL_LOADING = 3, ///< it plays when its sound has been loaded
    ORVEL_REFUSED = 4, ///< its sound cannot be played
    ORVEL_OVER = 5     ///< its sound has ended
} orvel_hearing;
/// Number of emitters of a back end that accounts for each, of the kind "voices"; 0 for others.
/// Stores for the first `count`, in ascending order of their ids, the id, an orvel_hearing, and the
/// level at the listener, linear; each array may be null.
ORVEL_EXPORT size_t orvel_backend_emitters(
    orvel_backend* backend, int* ids, int* hearings, float* levels, size_t count);
/// Number of sounds that are read while they play. Stores in `gaps`, unless null, how often the
/// data of such a sound came too late.
ORVEL_EXPORT size_t orvel_backend_streams(orvel_backend* backend, uint64_t* gaps);
/// The state of its sound device: "open", "opening", "absent", or "none" for a kind without one.
ORVEL_EXPORT const char* orvel_backend_device_state(orvel_backend* backend);
/// Stores in `seconds` the time from a setter until its effect leaves the device, as measured.
/// Returns false, storing 0, if it is unknown.
ORVEL_EXPORT bool orvel_backend_latency(orvel_backend* backend, double* seconds);
/// Number of servers that a "client" back end is connected to; 0 for other kinds.
ORVEL_EXPORT size_t orvel_backend_connections(orvel_backend* backend);
/// Renders the next `frames` frames of a back end that renders offline, "loopback" or "voices" with
/// "offline=yes", into `samples`, which must have room for two interleaved floats per frame, left
/// first; full scale is 1. Time stands still between two calls.
ORVEL_EXPORT bool orvel_backend_render(orvel_backend* backend, float* samples, unsigned frames);
/// Sample rate of such a back end in Hz.
ORVEL_EXPORT unsigned orvel_backend_rate(orvel_backend* backend);

// Sources

/// Creates a source. Id 0 takes the next free one; servers identify a source by its id, from 1 to
/// 32767.
ORVEL_EXPORT orvel_source* orvel_source_create(orvel_world* world, int id);
/// The source with that id; null, which is not an error, if there is none.
ORVEL_EXPORT orvel_source* orvel_source_find(orvel_world* world, int id);
/// Disconnects its emitters.
ORVEL_EXPORT bool orvel_source_destroy(orvel_source* source);
ORVEL_EXPORT int orvel_source_id(orvel_source* source);
/// Copies `size` bytes of interleaved PCM samples: 8 bit unsigned or 16 bit signed little endian, 1
/// or 2 channels (only mono is spatial), `rate` in Hz. Size 0 empties the source. Emitters that
/// play start the new sound, here and in the next two functions.
ORVEL_EXPORT bool orvel_source_set_data(
    orvel_source* source, unsigned rate, unsigned bits, unsigned channels, const void* data,
    size_t size);
/// Sets the sound: a file's path, relative to the current directory, or a URL (file, http, https).
/// If it cannot be fetched or read, that is logged.
ORVEL_EXPORT bool orvel_source_set_url(orvel_source* source, const char* url);
/// Decodes a sound file of any format that libsndfile reads, at most 1 GiB of 16-bit samples, and
/// copies them into the source. Its channels are mixed to one, so that the sound is spatial; with
/// `keep_channels` one or two are kept.
ORVEL_EXPORT bool orvel_source_set_file(orvel_source* source, const char* path, bool keep_channels);
/// The samples of the source and their format, whose places may be null. Null, with sizes of 0, if
/// it has none or is played from a URL. Valid until its sound changes or it is destroyed.
ORVEL_EXPORT const void* orvel_source_data(
    orvel_source* source, unsigned* rate, unsigned* bits, unsigned* channels, size_t* size);
/// The absolute URL of the sound; empty if it has none.
ORVEL_EXPORT const char* orvel_source_url(orvel_source* source);
/// `pitch` is a factor on the playing speed, 1 as recorded.
ORVEL_EXPORT bool orvel_source_set_param(orvel_source* source, bool loop, float pitch);
ORVEL_EXPORT bool orvel_source_loop(orvel_source* source);
ORVEL_EXPORT float orvel_source_pitch(orvel_source* source);
/// Sets the state, a value of orvel_state, of the source and all its emitters. Setting an equal
/// state has no effect: to play a sound again that has ended, set ORVEL_STOP, then ORVEL_PLAY.
ORVEL_EXPORT bool orvel_source_set_state(orvel_source* source, int state);
ORVEL_EXPORT orvel_state orvel_source_state(orvel_source* source);
/// Duration in seconds at pitch 1, as measured by a back end; 0 until then.
ORVEL_EXPORT float orvel_source_duration(orvel_source* source);

// Emitters

/// Creates an emitter, served by the back ends that share one of the `labels`, separated by commas,
/// or have none; null or empty: by all. Id 0 takes the next free one.
ORVEL_EXPORT orvel_emitter* orvel_emitter_create(orvel_world* world, const char* labels, int id);
/// The emitter with that id; null, which is not an error, if there is none.
ORVEL_EXPORT orvel_emitter* orvel_emitter_find(orvel_world* world, int id);
ORVEL_EXPORT bool orvel_emitter_destroy(orvel_emitter* emitter);
ORVEL_EXPORT int orvel_emitter_id(orvel_emitter* emitter);
/// Its labels, separated by commas.
ORVEL_EXPORT const char* orvel_emitter_labels(orvel_emitter* emitter);
/// Sets position (x, y, z) and rotation (x, y, z, w). Null leaves that one unchanged.
ORVEL_EXPORT bool
orvel_emitter_set_transform(orvel_emitter* emitter, const float* position, const float* rotation);
/// Gets position (x, y, z) and rotation (x, y, z, w); either may be null.
ORVEL_EXPORT bool orvel_emitter_transform(orvel_emitter* emitter, float* position, float* rotation);
/// The extents at which attenuation ends (max) and begins (min), behind and in front. The emitter
/// is nearly silent until this is set.
ORVEL_EXPORT bool orvel_emitter_set_hull(
    orvel_emitter* emitter, float max_back, float max_front, float min_back, float min_front);
/// Gets the extents; any place may be null.
ORVEL_EXPORT bool orvel_emitter_hull(
    orvel_emitter* emitter, float* max_back, float* max_front, float* min_back, float* min_front);
/// Its radius in scene units, initially 0: it is heard as wide as a ball of that size. Only OpenAL
/// back ends use it.
ORVEL_EXPORT bool orvel_emitter_set_radius(orvel_emitter* emitter, float radius);
ORVEL_EXPORT float orvel_emitter_radius(orvel_emitter* emitter);
/// `spatial`: whether it is heard at its position (otherwise at the listener); `value`: the host's
/// own, passed on.
ORVEL_EXPORT bool
orvel_emitter_set_param(orvel_emitter* emitter, bool spatial, float value, float gain);
/// Gets these values; any place may be null.
ORVEL_EXPORT bool
orvel_emitter_param(orvel_emitter* emitter, bool* spatial, float* value, float* gain);
/// The offset at which the sound starts each time it is played, in seconds of the sound; initially
/// 0. Notifies no back end; only OpenAL back ends use it.
ORVEL_EXPORT bool orvel_emitter_set_start_offset(orvel_emitter* emitter, double seconds);
ORVEL_EXPORT double orvel_emitter_start_offset(orvel_emitter* emitter);
/// Connects to a source of the same world; null disconnects. Silent until the next change of state.
ORVEL_EXPORT bool orvel_emitter_set_source(orvel_emitter* emitter, orvel_source* source);
/// The connected source; null if there is none.
ORVEL_EXPORT orvel_source* orvel_emitter_source(orvel_emitter* emitter);
/// Sets the state, a value of orvel_state, of the emitter, of its source and of the source's other
/// emitters.
ORVEL_EXPORT bool orvel_emitter_set_state(orvel_emitter* emitter, int state);
ORVEL_EXPORT orvel_state orvel_emitter_state(orvel_emitter* emitter);

// Servers

/// Called when a client has reset the server's world, which destroys all its sources and emitters:
/// create the sources that clients play here again, under their ids. (A client that destroys a
/// source only stops it.) Called on the polling thread, inside orvel_server_poll().
typedef void (*orvel_reset_callback)(orvel_server* server, void* user);

/// Creates a server that listens on a port chosen by the system and is discoverable from the first
/// poll on. Anyone who can reach it can drive it, unless it has keys. It has no thread of its own.
ORVEL_EXPORT orvel_server* orvel_server_create(void);
/// The same on a TCP port of its own, for clients and firewalls; 0: chosen by the system. `address`
/// is an IPv4 address of this machine; null or empty: all.
ORVEL_EXPORT orvel_server* orvel_server_create_at(const char* address, unsigned short port);
/// Frees the server, its world and everything in it. Null is ignored.
ORVEL_EXPORT bool orvel_server_destroy(orvel_server* server);
/// Its world, to add back ends and sources to; owned by the server.
ORVEL_EXPORT orvel_world* orvel_server_world(orvel_server* server);
/// Sets the callback for resets; null removes it.
ORVEL_EXPORT bool
orvel_server_set_reset_callback(orvel_server* server, orvel_reset_callback callback, void* user);

// Settings, made before the first poll. The defaults are those of `orvel serve` (docs/network.md).

/// A number that identifies the server to users, or a name that is hashed to one.
ORVEL_EXPORT bool orvel_server_set_id(orvel_server* server, const char* text);
ORVEL_EXPORT int orvel_server_id(orvel_server* server);
/// The search: the group's address, its UDP port, and its TTL.
ORVEL_EXPORT bool
orvel_server_set_multicast(orvel_server* server, const char* group, unsigned short port, int ttl);
/// The group's address. Stores port and TTL, whose places may be null.
ORVEL_EXPORT const char*
orvel_server_multicast(orvel_server* server, unsigned short* port, int* ttl);
/// Serves only on the interfaces with these addresses or names, separated by commas; empty: on all.
ORVEL_EXPORT bool orvel_server_set_interfaces(orvel_server* server, const char* interfaces);
/// The addresses, then the names, of the interfaces to serve on, separated by commas; empty: all.
ORVEL_EXPORT const char* orvel_server_interfaces(orvel_server* server);

/// Lets only clients with a key of this file connect, and only those with the right "drive" change
/// the scene (docs/security.md). Fails if the file has no usable keys; no one can connect then
/// until it has.
ORVEL_EXPORT bool orvel_server_set_keys(orvel_server* server, const char* path);

/// The TCP port that it listens on; 0 if it could not listen.
ORVEL_EXPORT unsigned short orvel_server_port(orvel_server* server);
/// Number of connected clients.
ORVEL_EXPORT size_t orvel_server_clients(orvel_server* server);
/// Accepts clients, applies received events and sends queued data. First waits up to `seconds` for
/// data; 0 never waits. Returns the number of events, at most 16,384 (the rest is for the next
/// call), or -1 on failure. Call it at least every few seconds.
ORVEL_EXPORT int orvel_server_poll(orvel_server* server, double seconds);

// Key files (docs/security.md). They are made readable by their owner only. Callable on any thread.

/// Makes a key file, which must not exist, with a first key of this name, which may drive.
ORVEL_EXPORT bool orvel_keys_new(const char* path, const char* name);
/// Adds a key with the right "drive" or "watch". `output`: the key file for its machine, which must
/// not exist.
ORVEL_EXPORT bool
orvel_keys_grant(const char* path, const char* name, const char* right, const char* output);
/// Removes a key. Running servers disconnect it within a second.
ORVEL_EXPORT bool orvel_keys_revoke(const char* path, const char* name);
/// A line "RIGHT ID NAME" for each key; null if the file cannot be used. Valid until the next call
/// on this thread.
ORVEL_EXPORT const char* orvel_keys_list(const char* path);

#ifdef __cplusplus
}
#endif

// NOLINTEND(readability-identifier-naming)
