#pragma once

/// @file
/// The interface in C of liborvel-show: scene files and captures, playing, rendering and recording
/// them, Open Sound Control, and the monitor. It is the C++ interface (ShowFile.h, Playback.h,
/// Render.h, CaptureRecorder.h, OscInput.h, MonitorPage.h), whose headers hold the finer rules, and
/// keeps the rules of Orvel/orvel.h: a function that fails gives false, null or a negative number,
/// and orvel_last_error() says why; a handle that is null or whose object is gone is such an error;
/// texts that are handed in are copied.
///
/// Ownership: each object is freed by its own destroy function, for which null is ignored, or with
/// the world or server that it was made for. A file is freed by its own alone, at any time.
///
/// Threads: all that belongs to a world is used by one thread at a time, its callbacks included.

#include <Orvel/orvel.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <orvel_show_export.h>

// NOLINTBEGIN(readability-identifier-naming, modernize-use-using): as is usual in C

#ifdef __cplusplus
extern "C" {
#endif

/// A scene file with its sounds, or a capture.
typedef struct orvel_show_file orvel_show_file;
/// A file being played on a world.
typedef struct orvel_show_playback orvel_show_playback;
/// A recorder of a server's clients.
typedef struct orvel_show_recorder orvel_show_recorder;
/// An input for Open Sound Control.
typedef struct orvel_show_osc orvel_show_osc;
/// A web page that shows a world.
typedef struct orvel_show_monitor orvel_show_monitor;

// Files

/// A mistake in a file, or a warning. The texts live as long as the file, those of a warning until
/// the next check.
typedef struct orvel_show_problem {
    const char* file;  ///< as given
    int line;          ///< from 1; 0: concerns the whole file
    int column;        ///< from 1, where the file is not valid JSON; otherwise 0
    const char* field; ///< such as "emitters[0].gain"; may be empty
    const char* text;  ///< the expected and the actual value
} orvel_show_problem;

/// A named part of a scene's timeline.
typedef struct orvel_show_cue {
    const char* name; ///< lives until the next call for this file
    double at;        ///< its begin, in seconds of the scene
    double until;     ///< its end; infinity: the end of the scene
} orvel_show_cue;

/// Loads a scene or a capture, depending on the file. `fetch`: whether to fetch sounds that a
/// capture names by URL. Also returns a handle for a file with mistakes, with its problems: check
/// orvel_show_file_good() afterwards.
ORVEL_SHOW_EXPORT orvel_show_file* orvel_show_file_load(const char* path, bool fetch);
ORVEL_SHOW_EXPORT void orvel_show_file_destroy(orvel_show_file* file);
/// Whether it can be played; if not, the last error is its first problem.
ORVEL_SHOW_EXPORT bool orvel_show_file_good(orvel_show_file* file);
/// Whether it is a capture that can be played.
ORVEL_SHOW_EXPORT bool orvel_show_file_capture(orvel_show_file* file);
/// Whether it can be played with all of its sounds; always true for a good scene.
ORVEL_SHOW_EXPORT bool orvel_show_file_complete(orvel_show_file* file);
/// Numbers of sources and emitters, those of a scene's timeline included; for a capture the largest
/// possible numbers. 0 if it is not good.
ORVEL_SHOW_EXPORT size_t orvel_show_file_sources(orvel_show_file* file);
ORVEL_SHOW_EXPORT size_t orvel_show_file_emitters(orvel_show_file* file);
/// A good scene from above as an SVG document; null for another file. Lives until the next call
/// for this file.
ORVEL_SHOW_EXPORT const char* orvel_show_file_picture(orvel_show_file* file);
/// Number of cues of a scene.
ORVEL_SHOW_EXPORT size_t orvel_show_file_cue_count(orvel_show_file* file);
/// Gets the cue with that index, from 0, in the order of the file.
ORVEL_SHOW_EXPORT bool
orvel_show_file_cue(orvel_show_file* file, size_t index, orvel_show_cue* cue);
ORVEL_SHOW_EXPORT size_t orvel_show_file_problem_count(orvel_show_file* file);
/// Gets the problem with that index, from 0.
ORVEL_SHOW_EXPORT bool
orvel_show_file_problem(orvel_show_file* file, size_t index, orvel_show_problem* problem);
/// Plays a good scene through, without sound, and returns the number of warnings about values that
/// are unlikely to be intended; -1 for another file. Sets `seconds`, unless null, to the end of the
/// scene.
ORVEL_SHOW_EXPORT int orvel_show_file_check(orvel_show_file* file, double* seconds);
/// Gets the warning of the latest check with that index, from 0.
ORVEL_SHOW_EXPORT bool
orvel_show_file_warning(orvel_show_file* file, size_t index, orvel_show_problem* warning);

// Playing

/// Plays a good file on a world, which is cleared at the start.
ORVEL_SHOW_EXPORT orvel_show_playback*
orvel_show_playback_create(orvel_world* world, orvel_show_file* file);
ORVEL_SHOW_EXPORT void orvel_show_playback_destroy(orvel_show_playback* playback);
/// Brings the world to the time `from`, in seconds of the file, with every sound at its current
/// position; may be called again to start over.
ORVEL_SHOW_EXPORT bool orvel_show_playback_start(orvel_show_playback* playback, double from);
/// Applies everything due up to this time, in seconds, which must not decrease. It is the time of
/// the file until one of the functions from orvel_show_playback_arm() on is called.
ORVEL_SHOW_EXPORT bool orvel_show_playback_advance(orvel_show_playback* playback, double seconds);
/// Waits for orvel_show_playback_go() and the like, with the clock at 0; the scene then stops at
/// the end of each cue. In place of orvel_show_playback_start().
ORVEL_SHOW_EXPORT bool orvel_show_playback_arm(orvel_show_playback* playback);
/// Plays the next cue of the scene. Returns false if there is none.
ORVEL_SHOW_EXPORT bool orvel_show_playback_go(orvel_show_playback* playback);
/// Plays the cue with this name. Returns false if there is none.
ORVEL_SHOW_EXPORT bool orvel_show_playback_cue(orvel_show_playback* playback, const char* name);
/// Goes to a time of the file, in seconds, and plays on from there unless paused.
ORVEL_SHOW_EXPORT bool orvel_show_playback_seek(orvel_show_playback* playback, double seconds);
/// Halts the timeline and the sounds, or lets them go on.
ORVEL_SHOW_EXPORT bool orvel_show_playback_pause(orvel_show_playback* playback, bool paused);
/// The time of the file, in seconds, which differs from the clock after the functions above;
/// negative on failure.
ORVEL_SHOW_EXPORT double orvel_show_playback_position(orvel_show_playback* playback);
/// The state: "waiting", "playing", "paused" or "over". Null on failure.
ORVEL_SHOW_EXPORT const char* orvel_show_playback_state(orvel_show_playback* playback);
/// The names of the present cue and of the next one; empty if there is none, null on failure. They
/// live as long as the playback.
ORVEL_SHOW_EXPORT const char* orvel_show_playback_current_cue(orvel_show_playback* playback);
ORVEL_SHOW_EXPORT const char* orvel_show_playback_next_cue(orvel_show_playback* playback);
/// The next time at which to advance; infinity if nothing is left or it waits, negative on failure.
ORVEL_SHOW_EXPORT double orvel_show_playback_next(orvel_show_playback* playback);
/// The end in seconds; negative on failure.
ORVEL_SHOW_EXPORT double orvel_show_playback_end(orvel_show_playback* playback);

// Rendering

/// Settings of a render; zeros are the defaults.
typedef struct orvel_show_render_settings {
    unsigned rate;  ///< sample rate in Hz, 8000 to 192000; 0: 44100
    bool floats;    ///< a WAV file has 32-bit floats, otherwise 16-bit integers
    double from;    ///< start in seconds of the file
    double seconds; ///< length to render; 0: until the end
} orvel_show_render_settings;

/// Called after each block with the progress from 0 to 1. Returning false cancels, which makes the
/// rendering fail.
typedef bool (*orvel_show_progress)(double done, void* user);
/// Receives the next frames, interleaved floats of orvel_show_file_channels(); full scale is 1.
/// They are valid during the call. Returning false cancels, which makes the rendering fail.
typedef bool (*orvel_show_take)(const float* samples, size_t frames, void* user);

/// Renders a file to a WAV file, which appears when it is complete. `settings` and
/// `progress` may be null.
ORVEL_SHOW_EXPORT bool orvel_show_render_file(
    orvel_show_file* file, const char* path, const orvel_show_render_settings* settings,
    orvel_show_progress progress, void* user);
/// The number of channels of its renders: 2, left and right, unless the scene names another output.
ORVEL_SHOW_EXPORT size_t orvel_show_file_channels(orvel_show_file* file);
/// Renders a file into a function. `settings` may be null.
ORVEL_SHOW_EXPORT bool orvel_show_render(
    orvel_show_file* file, const orvel_show_render_settings* settings, orvel_show_take take,
    void* user);

// Recording

/// Records the clients' changes of a server to a new capture. `scene_path` is the scene file of the
/// server's sources; null or empty: none. At most `max_bytes`; 0: no limit.
ORVEL_SHOW_EXPORT orvel_show_recorder* orvel_show_recorder_create(
    orvel_server* server, const char* path, const char* scene_path, uint64_t max_bytes);
/// Without orvel_show_recorder_finish(), the capture ends as if interrupted.
ORVEL_SHOW_EXPORT void orvel_show_recorder_destroy(orvel_show_recorder* recorder);
/// Writes buffered data to the file; call it several times a second. Returns false once the
/// recording has ended.
ORVEL_SHOW_EXPORT bool orvel_show_recorder_flush(orvel_show_recorder* recorder);
/// Completes the capture. Returns false if it is incomplete.
ORVEL_SHOW_EXPORT bool orvel_show_recorder_finish(orvel_show_recorder* recorder);
/// Number of recorded events.
ORVEL_SHOW_EXPORT uint64_t orvel_show_recorder_events(orvel_show_recorder* recorder);
/// Recorded time in seconds.
ORVEL_SHOW_EXPORT double orvel_show_recorder_seconds(orvel_show_recorder* recorder);

// Open Sound Control

/// Receives a sentence about an invalid message; `text` is valid only during the call. Called on
/// the thread of orvel_show_osc_serve().
typedef void (*orvel_show_report)(const char* text, void* user);

/// Receives Open Sound Control over UDP and TCP for a world. `address` is an IPv4 address of this
/// machine, null: 127.0.0.1; port 0: chosen by the system; `scale`: scene units per normalised
/// unit, 0: 10. `report` may be null.
ORVEL_SHOW_EXPORT orvel_show_osc* orvel_show_osc_create(
    orvel_world* world, const char* address, unsigned short port, float scale,
    orvel_show_report report, void* user);
ORVEL_SHOW_EXPORT void orvel_show_osc_destroy(orvel_show_osc* osc);
/// Lets messages such as `/orvel/go` control a playback, which may end first; null: none.
ORVEL_SHOW_EXPORT bool orvel_show_osc_control(orvel_show_osc* osc, orvel_show_playback* playback);
/// The port; 0 on failure.
ORVEL_SHOW_EXPORT unsigned short orvel_show_osc_port(orvel_show_osc* osc);
/// A descriptor that is readable when data has arrived; -1 on failure. It does not show messages
/// that wait for their time, so also serve several times a second.
ORVEL_SHOW_EXPORT int orvel_show_osc_descriptor(orvel_show_osc* osc);
/// Applies received and due messages, for about 4 ms. First waits up to `seconds` for work; 0 never
/// waits.
ORVEL_SHOW_EXPORT bool orvel_show_osc_serve(orvel_show_osc* osc, double seconds);

// The monitor

/// Opens the monitor's page for a world; it is served inside orvel_world_update(). `address` null:
/// 127.0.0.1; port 0: a free one; -1: 33790, or a free one if that is in use. `host_names`,
/// separated by commas: names that browsers may use besides this machine's; null: none.
ORVEL_SHOW_EXPORT orvel_show_monitor* orvel_show_monitor_create(
    orvel_world* world, const char* address, int port, const char* host_names);
ORVEL_SHOW_EXPORT void orvel_show_monitor_destroy(orvel_show_monitor* monitor);
/// Its URL; null on failure. Lives until the next call on the same thread.
ORVEL_SHOW_EXPORT const char* orvel_show_monitor_url(orvel_show_monitor* monitor);

#ifdef __cplusplus
}
#endif

// NOLINTEND(readability-identifier-naming, modernize-use-using)
