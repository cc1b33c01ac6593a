/* SPDX-License-Identifier: Apache-2.0
 *
 * A host in C that links nothing but TarnStitch: a camera that slides along a texture, its preview and its panorama.
 */
#include <stdio.h>
#include <TarnStitchSDK/tarn_c.h>

enum { frame_width = 640, frame_height = 480, frames = 12, step = 24 };

/* A plane of blocks, each of a shade of its own. */
static unsigned char shade_at(int x, int y)
{
    const unsigned long block = (unsigned long)(x / 13) * 7919ul + (unsigned long)(y / 11) * 104729ul;
    return (unsigned char)(40 + (((block * 2654435761ul) & 0xffffffffu) >> 13) % 200);
}

static unsigned char pixels[frame_height][frame_width];

int main(void)
{
    tarn_sweep_options options;
    tarn_image frame, preview, image;
    tarn_answer answer;
    tarn_panorama_info info;
    TARN_INIT(options);
    TARN_INIT(frame);
    TARN_INIT(preview);
    TARN_INIT(image);
    TARN_INIT(answer);
    TARN_INIT(info);
    options.most_under_way = 2;
    frame.pixels = pixels;
    frame.width = frame_width;
    frame.height = frame_height;
    frame.format = TARN_FORMAT_GRAY;

    tarn_sweep* sweep = NULL;
    tarn_result result = tarn_sweep_begin(&options, &sweep);
    for (int i = 0; i < frames && result == TARN_OK; ++i) {
        for (int y = 0; y < frame_height; ++y) {
            for (int x = 0; x < frame_width; ++x)
                pixels[y][x] = shade_at(x + i * step, y);
        }
        result = tarn_sweep_feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer);
    }
    tarn_picture* picture = NULL;
    tarn_panorama* panorama = NULL;
    if (result != TARN_OK || (result = tarn_sweep_preview(sweep, &picture, NULL)) != TARN_OK
        || (result = tarn_picture_view(picture, &preview)) != TARN_OK
        || (result = tarn_sweep_finish(sweep, NULL, &panorama)) != TARN_OK
        || (result = tarn_panorama_get_info(panorama, &info)) != TARN_OK
        || (result = tarn_panorama_view(panorama, &image)) != TARN_OK)
        fprintf(stderr, "%s\n", tarn_last_error());
    printf("TarnStitch %s: preview %d x %d, panorama %d x %d of %d key frames\n", tarn_version(), preview.width,
           preview.height, image.width, image.height, info.key_frames);
    tarn_panorama_free(panorama);
    tarn_picture_free(picture);
    tarn_sweep_free(sweep);
    /* Turned: what was wide is high. */
    return result == TARN_OK && info.extent == TARN_EXTENT_WHOLE && image.height > image.width ? 0 : 1;
}
