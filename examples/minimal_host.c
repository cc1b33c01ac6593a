/* SPDX-License-Identifier: Apache-2.0
 *
 * A complete host in C: stitches the frames that standard input brings, one binary PPM after the other, into the JPEG
 * named by its argument. Of a video held upright, for instance, whose frames are laid on their side here as a sensor
 * would deliver them, and rotated back in the panorama:
 *
 *     ffmpeg -i VIDEO -vf transpose=cclock -f image2pipe -vcodec ppm - | minimal_host_c PANORAMA.jpg
 */
#include <stdio.h>
#include <stdlib.h>

#include "TarnStitchSDK/tarn_c.h"

/* Reads one frame, whose pixels are malloc's. 1: has read it; 0: there is no more; -1: what there is, is none. */
static int read_frame(tarn_image* frame, unsigned char** pixels)
{
    int width = 0, height = 0, depth = 0;
    const int found = scanf("P6 %5d %5d %3d", &width, &height, &depth);
    if (found == EOF)
        return 0;
    if (found != 3 || width < 1 || height < 1 || depth != 255 || getchar() == EOF)
        return -1;
    const size_t bytes = (size_t)width * (size_t)height * 3;
    unsigned char* room = realloc(*pixels, bytes);
    if (room == NULL)
        return -1;
    *pixels = room;
    if (fread(room, 1, bytes, stdin) != bytes)
        return -1;
    for (size_t i = 0; i < bytes; i += 3) { /* a PPM has red first */
        const unsigned char red = room[i];
        room[i] = room[i + 2];
        room[i + 2] = red;
    }
    frame->pixels = room;
    frame->width = width;
    frame->height = height;
    frame->format = TARN_FORMAT_BGR;
    return 1;
}

int main(int argc, char* argv[])
{
    tarn_sweep_options options;
    TARN_INIT(options);
    options.most_under_way = 2; /* a camera is slow enough; a file has to wait for the workers */
    tarn_sweep* sweep = NULL;
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
    int more = 0;
    while (result == TARN_OK && (more = read_frame(&frame, &pixels)) > 0) {
        result = tarn_sweep_feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer);
        if (result == TARN_OK && answer.code != TARN_CODE_NORMAL)
            fprintf(stderr, "%s: %s\n", tarn_code_name(answer.code), tarn_code_advice(answer.code));
    }

    tarn_panorama* panorama = NULL;
    tarn_finish_options end;
    TARN_INIT(end);
    if (frame.pixels != NULL)
        end.last_frame = &frame; /* the panorama ends where the sweep did */
    if (more == 0 && result == TARN_OK && (result = tarn_sweep_finish(sweep, &end, &panorama)) == TARN_OK)
        result = tarn_panorama_save(panorama, argv[1]);
    if (more < 0)
        fprintf(stderr, "standard input is no stream of whole PPMs\n");
    else if (result != TARN_OK)
        fprintf(stderr, "%s\n", tarn_last_error());
    tarn_panorama_free(panorama);
    tarn_sweep_free(sweep);
    free(pixels);
    return more == 0 && result == TARN_OK ? 0 : 1;
}
