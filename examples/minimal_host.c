/* SPDX-License-Identifier: Apache-2.0
 *
 * A complete host in C: stitches the frames that standard input brings, one binary PPM after the other, into the JPEG
 * named by its argument. Of a video held upright, for instance, whose frames are laid on their side here as a sensor
 * would deliver them, and turned back in the panorama:
 *
 *     ffmpeg -i VIDEO -vf transpose=cclock -f image2pipe -vcodec ppm - | minimal_host_c PANORAMA.jpg
 */
#include <stdio.h>
#include <stdlib.h>

#include "TarnStitchSDK/tarn_c.h"

/* Reads one frame; its pixels are malloc's. Returns 0 where there is none. */
static int read_frame(tarn_image* frame, unsigned char** pixels)
{
    int depth = 0;
    if (scanf("P6 %5d %5d %3d", &frame->width, &frame->height, &depth) != 3 || depth != 255 || getchar() == EOF)
        return 0;
    const size_t bytes = (size_t)frame->width * (size_t)frame->height * 3;
    unsigned char* room = realloc(*pixels, bytes + 1);
    if (room == NULL)
        return 0;
    frame->pixels = *pixels = room;
    frame->format = TARN_FORMAT_BGR;
    if (fread(room, 1, bytes, stdin) != bytes)
        return 0;
    for (size_t i = 0; i < bytes; i += 3) { /* a PPM has red first */
        const unsigned char red = room[i];
        room[i] = room[i + 2];
        room[i + 2] = red;
    }
    return 1;
}

int main(int argc, char* argv[])
{
    tarn_sweep_options options;
    TARN_INIT(options);
    options.most_under_way = 2; /* a camera is slow enough; a file has to wait for the workers */
    tarn_sweep* sweep;
    if (argc != 2 || tarn_sweep_begin(&options, &sweep) != TARN_OK) {
        fprintf(stderr, "%s\n", argc != 2 ? "usage: minimal_host_c PANORAMA.jpg <FRAMES" : tarn_last_error());
        return 2;
    }

    unsigned char* pixels = NULL;
    tarn_image frame;
    tarn_answer answer;
    TARN_INIT(frame);
    TARN_INIT(answer);
    tarn_result result = TARN_OK;
    while (result == TARN_OK && read_frame(&frame, &pixels)) {
        result = tarn_sweep_feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer);
        if (result == TARN_OK && answer.code != TARN_CODE_NORMAL)
            fprintf(stderr, "%s: %s\n", tarn_code_name(answer.code), tarn_code_advice(answer.code));
    }

    tarn_panorama* panorama = NULL;
    if (result == TARN_OK)
        result = tarn_sweep_finish(sweep, NULL, &panorama);
    if (result == TARN_OK)
        result = tarn_panorama_save(panorama, argv[1]);
    if (result != TARN_OK)
        fprintf(stderr, "%s\n", tarn_last_error());
    tarn_panorama_free(panorama);
    tarn_sweep_free(sweep);
    free(pixels);
    return result == TARN_OK ? 0 : 1;
}
