#pragma once

/// @file
/// The interface in C of liborvel-show: scene files and captures, playing, rendering and recording
/// them, Open Sound Control, and the monitor. It is the C++ interface (ShowFile.h, Playback.h,
/// Render.h, CaptureRecorder.h, OscInput.h, MonitorPage.h), whose headers hold the finer rules, and
/// keeps the rules of Orvel/orvel.h: a function that fails gives false, null or a negative number,
/// and orvel_last_error() says why; a null handle is such an error; texts that are handed in are
/// copied.
///
/// Ownership: each handle is freed by its own destroy function, for which null is ignored, and
/// before the world or server that it was made for. A file may be freed while playbacks of it live.
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
/// Plays a file on a world.
typedef struct orvel_show_playback orvel_show_playback;
/// Records what clients of a server do.
typedef struct orvel_show_recorder orvel_show_recorder;
/// Takes Open Sound Control.
typedef struct orvel_show_osc orvel_show_osc;
/// Shows a world to browsers.
typedef struct orvel_show_monitor orvel_show_monitor;

// Files

/// A mistake in a file, or a warning. The texts live as long as the file, those of a warning until
/// the next check.
typedef struct orvel_show_problem {
    const char* file;  ///< as it was given
    int line;          ///< from 1; 0: about the file as a whole
    int column;        ///< from 1, where the file is not valid JSON; otherwise 0
    const char* field; ///< such as "emitters[0].gain"; may be empty
    const char* text;  ///< what was expected and what was found
} orvel_show_problem;

/// Loads a scene or a capture, whichever the file is. `fetch` is for captures: whether sounds that
/// they name by URL are fetched. Gives a handle also for a file with mistakes, which are its
/// problems: look at orvel_show_file_good() next.
ORVEL_SHOW_EXPORT orvel_show_file* orvel_show_file_load(const char* path, bool fetch);
ORVEL_SHOW_EXPORT void orvel_show_file_destroy(orvel_show_file* file);
/// Whether it can be played; if not, the last error is its first problem.
ORVEL_SHOW_EXPORT bool orvel_show_file_good(orvel_show_file* file);
ORVEL_SHOW_EXPORT size_t orvel_show_file_problem_count(orvel_show_file* file);
/// Writes the problem with that index, from 0.
ORVEL_SHOW_EXPORT bool
orvel_show_file_problem(orvel_show_file* file, size_t index, orvel_show_problem* problem);
/// Plays a good scene through, without sound, and gives the number of warnings about what is hardly
/// meant, above all what is never heard; -1 for another file. `seconds`, unless null, gets when the
/// scene is over.
ORVEL_SHOW_EXPORT int orvel_show_file_check(orvel_show_file* file, double* seconds);
/// Writes the warning of the latest check with that index, from 0.
ORVEL_SHOW_EXPORT bool
orvel_show_file_warning(orvel_show_file* file, size_t index, orvel_show_problem* warning);

// Playing

/// Plays a good file on a world, which is emptied by the start.
ORVEL_SHOW_EXPORT orvel_show_playback*
orvel_show_playback_create(orvel_world* world, orvel_show_file* file);
ORVEL_SHOW_EXPORT void orvel_show_playback_destroy(orvel_show_playback* playback);
/// Brings the world to the time `from`, in seconds of the file, with every sound at its place; may
/// be called again, to start over.
ORVEL_SHOW_EXPORT bool orvel_show_playback_start(orvel_show_playback* playback, double from);
/// Applies everything that is due up to this time of the file, in seconds, which must not go down.
ORVEL_SHOW_EXPORT bool orvel_show_playback_advance(orvel_show_playback* playback, double seconds);
/// The next time at which to advance; infinity when nothing is left, negative on failure.
ORVEL_SHOW_EXPORT double orvel_show_playback_next(orvel_show_playback* playback);
/// When all is over, in seconds; negative on failure.
ORVEL_SHOW_EXPORT double orvel_show_playback_end(orvel_show_playback* playback);

// Rendering

/// How to render; all zero is the default.
typedef struct orvel_show_render_settings {
    unsigned rate;  ///< frames a second, 8000 to 192000; 0: 44100
    bool floats;    ///< in a WAV file 32-bit floats, otherwise 16-bit integers
    double from;    ///< seconds of the file that are left out
    double seconds; ///< how much to render; 0: until the end
} orvel_show_render_settings;

/// Called after each block with the part that is done, from 0 to 1. False cancels, which makes the
/// rendering fail.
typedef bool (*orvel_show_progress)(double done, void* user);
/// Takes the next frames, two floats each, left and right; full scale is 1. They live during the
/// call. False cancels, which makes the rendering fail.
typedef bool (*orvel_show_take)(const float* samples, size_t frames, void* user);

/// Renders a file to a stereo WAV file, which appears when it is whole. `settings` and `progress`
/// may be null.
ORVEL_SHOW_EXPORT bool orvel_show_render_file(
    orvel_show_file* file, const char* path, const orvel_show_render_settings* settings,
    orvel_show_progress progress, void* user);
/// Renders a file into a function. `settings` may be null.
ORVEL_SHOW_EXPORT bool orvel_show_render(
    orvel_show_file* file, const orvel_show_render_settings* settings, orvel_show_take take,
    void* user);

// Recording

/// Records what the clients of a server do into a new capture. `scene_path` names the scene file
/// that has the server's sources; null or empty: none. At most `max_bytes`; 0: no limit.
ORVEL_SHOW_EXPORT orvel_show_recorder* orvel_show_recorder_create(
    orvel_server* server, const char* path, const char* scene_path, uint64_t max_bytes);
/// Without orvel_show_recorder_finish(), the capture ends as if interrupted.
ORVEL_SHOW_EXPORT void orvel_show_recorder_destroy(orvel_show_recorder* recorder);
/// Hands what has come to the system; to be called several times a second. False once the
/// recording has ended.
ORVEL_SHOW_EXPORT bool orvel_show_recorder_flush(orvel_show_recorder* recorder);
/// Completes the capture. False if not everything is in it.
ORVEL_SHOW_EXPORT bool orvel_show_recorder_finish(orvel_show_recorder* recorder);
/// How many events are recorded.
ORVEL_SHOW_EXPORT uint64_t orvel_show_recorder_events(orvel_show_recorder* recorder);

// Open Sound Control

/// Takes a sentence about messages that make no sense; `text` lives only during the call. On the
/// thread of orvel_show_osc_serve().
typedef void (*orvel_show_report)(const char* text, void* user);

/// Takes Open Sound Control over UDP and TCP for a world. `address` is an IPv4 address of this
/// machine, null: 127.0.0.1; port 0: the system chooses; `scale`: scene units for the 1 of
/// normalised coordinates, 0: 10. `report` may be null.
ORVEL_SHOW_EXPORT orvel_show_osc* orvel_show_osc_create(
    orvel_world* world, const char* address, unsigned short port, float scale,
    orvel_show_report report, void* user);
ORVEL_SHOW_EXPORT void orvel_show_osc_destroy(orvel_show_osc* osc);
/// The port; 0 on failure.
ORVEL_SHOW_EXPORT unsigned short orvel_show_osc_port(orvel_show_osc* osc);
/// A descriptor that is readable while something has arrived; -1 on failure. Messages that wait for
/// their time do not show there: serve several times a second as well.
ORVEL_SHOW_EXPORT int orvel_show_osc_descriptor(orvel_show_osc* osc);
/// Applies what has arrived and what is due, for about 4 ms. First waits up to `seconds` for
/// something to do; 0 never waits.
ORVEL_SHOW_EXPORT bool orvel_show_osc_serve(orvel_show_osc* osc, double seconds);

// The monitor

/// Opens the monitor's page for a world; it is served inside orvel_world_update(). `address` null:
/// 127.0.0.1; port 0: a free one; -1: 33790, or a free one if that is taken. `host_names`,
/// separated by commas, are names by which browsers may call it besides this machine's; null: none.
ORVEL_SHOW_EXPORT orvel_show_monitor* orvel_show_monitor_create(
    orvel_world* world, const char* address, int port, const char* host_names);
ORVEL_SHOW_EXPORT void orvel_show_monitor_destroy(orvel_show_monitor* monitor);
/// Where a browser finds it; null on failure. Lives until the next call on the same thread.
ORVEL_SHOW_EXPORT const char* orvel_show_monitor_url(orvel_show_monitor* monitor);

#ifdef __cplusplus
}
#endif

// NOLINTEND(readability-identifier-naming, modernize-use-using)
