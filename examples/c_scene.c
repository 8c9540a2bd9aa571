/* Orvel from C: renders a voice that walks past the listener, from the left to the right, without a
   sound card, and prints the level of both channels twenty times a second. */
#include <Orvel/orvel.h>

#include <math.h>
#include <stdio.h>

enum { kFramesPerBlock = 2400 /* 0.05 s */, kBlocks = 28 };

static void logLine(orvel_level level, const char* text, void* user) {
    if (level <= ORVEL_LEVEL_WARNING) {
        fputs(text, stderr);
    }
    ++*(int*)user;
}

static int fail(orvel_world* world) {
    fprintf(stderr, "%s\n", orvel_last_error());
    orvel_world_destroy(world);
    return 1;
}

int main(void) {
    static float block[2 * kFramesPerBlock];
    double early = 0.0; /* how much louder the left channel is, in the first half */
    double late = 0.0;  /* and in the second */
    int lines = 0;
    int i;
    orvel_world* world;
    orvel_backend* backend;
    orvel_source* voice;
    orvel_emitter* emitter;

    orvel_log_set_callback(logLine, &lines);
    world = orvel_world_create();
    backend = orvel_world_add_backend(world, "loopback", "rate=48000");
    voice = orvel_source_create(world, 0);
    emitter = orvel_emitter_create(world, NULL, 0);
    if (backend == NULL || voice == NULL || emitter == NULL ||
        !orvel_source_set_url(voice, "/usr/share/sounds/alsa/Front_Center.wav")) {
        return fail(world);
    }
    orvel_emitter_set_hull(emitter, 50.0F, 50.0F, 1.0F, 1.0F);
    orvel_emitter_set_source(emitter, voice);
    orvel_emitter_set_state(emitter, ORVEL_PLAY);

    for (i = 0; i < kBlocks; ++i) {
        float position[3] = {0.0F, 0.0F, -1.0F};
        double left = 0.0;
        double right = 0.0;
        size_t frame;
        position[0] = -4.0F + 8.0F * (float)i / kBlocks;
        orvel_emitter_set_transform(emitter, position, NULL);
        if (!orvel_backend_render(backend, block, kFramesPerBlock)) {
            return fail(world);
        }
        for (frame = 0; frame < kFramesPerBlock; ++frame) {
            left += pow((double)block[2 * frame], 2.0);
            right += pow((double)block[2 * frame + 1], 2.0);
        }
        *(i < kBlocks / 2 ? &early : &late) += left - right;
        printf(
            "x = %5.2f   left %.4f   right %.4f\n", (double)position[0],
            sqrt(left / kFramesPerBlock), sqrt(right / kFramesPerBlock));
    }
    printf(
        "the voice lasts %.2f s; the log had %d lines\n", (double)orvel_source_duration(voice),
        lines);
    orvel_world_destroy(world);
    orvel_log_set_callback(NULL, NULL); /* lines is gone soon */
    return early > 0.0 && late < 0.0 && lines > 0 ? 0 : 1;
}
