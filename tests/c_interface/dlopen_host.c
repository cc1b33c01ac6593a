/* SPDX-License-Identifier: Apache-2.0
 *
 * The shared library without a linker: opened by its path, every function of its header found by its name, a sweep
 * stitched by them alone.
 * usage: dlopen_host LIBRARY NAME…
 */
#define _POSIX_C_SOURCE 200112L

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "tarn_c.h"

enum { frame_width = 640, frame_height = 480, frames = 12, step = 24 };

static struct {
    const char* (*version)(void);
    const char* (*last_error)(void);
    const char* (*reason_name)(int);
    tarn_result (*begin)(const tarn_sweep_options*, tarn_sweep**);
    tarn_result (*feed)(tarn_sweep*, const tarn_image*, int, tarn_answer*);
    tarn_result (*preview)(tarn_sweep*, tarn_picture**, tarn_preview_info*);
    tarn_result (*finish)(tarn_sweep*, const tarn_finish_options*, tarn_panorama**);
    tarn_result (*get_info)(tarn_panorama*, tarn_panorama_info*);
    tarn_result (*panorama_view)(tarn_panorama*, tarn_image*);
    tarn_result (*jpeg)(tarn_panorama*, const unsigned char**, size_t*);
    tarn_result (*picture_view)(tarn_picture*, tarn_image*);
    void (*sweep_free)(tarn_sweep*);
    void (*picture_free)(tarn_picture*);
    void (*panorama_free)(tarn_panorama*);
} tarn;

/* Puts the address of a function where a pointer to it lies: C has no cast between the two kinds of pointers. */
static int find(void* library, const char* name, void* pointer)
{
    void* const address = dlsym(library, name);
    if (address == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 0;
    }
    memcpy(pointer, &address, sizeof address);
    return 1;
}

static int find_all(void* library)
{
    return find(library, "tarn_version", &tarn.version) && find(library, "tarn_last_error", &tarn.last_error)
           && find(library, "tarn_reason_name", &tarn.reason_name) && find(library, "tarn_sweep_begin", &tarn.begin)
           && find(library, "tarn_sweep_feed", &tarn.feed) && find(library, "tarn_sweep_preview", &tarn.preview)
           && find(library, "tarn_sweep_finish", &tarn.finish)
           && find(library, "tarn_panorama_get_info", &tarn.get_info)
           && find(library, "tarn_panorama_view", &tarn.panorama_view)
           && find(library, "tarn_panorama_jpeg", &tarn.jpeg) && find(library, "tarn_picture_view", &tarn.picture_view)
           && find(library, "tarn_sweep_free", &tarn.sweep_free)
           && find(library, "tarn_picture_free", &tarn.picture_free)
           && find(library, "tarn_panorama_free", &tarn.panorama_free);
}

/* A camera that slides over a plane of blocks, each of a shade of its own. */
static void draw(unsigned char* pixels, int shift)
{
    for (int y = 0; y < frame_height; ++y) {
        for (int x = 0; x < frame_width; ++x) {
            const unsigned long block = (unsigned long)((x + shift) / 13) * 7919ul + (unsigned long)(y / 11) * 104729ul;
            const unsigned long mixed = ((block * 2654435761ul) & 0xffffffffu) >> 13;
            pixels[y * frame_width + x] = (unsigned char)(40 + mixed % 200);
        }
    }
}

static int complain(const char* what)
{
    fprintf(stderr, "%s: %s\n", what, tarn.last_error());
    return 0;
}

static int stitch(void)
{
    static unsigned char pixels[frame_width * frame_height];
    tarn_sweep_options options;
    TARN_INIT(options);
    options.most_under_way = 2;
    tarn_sweep* sweep = NULL;
    if (tarn.begin(&options, &sweep) != TARN_OK)
        return complain("begin");
    tarn_image frame;
    TARN_INIT(frame);
    frame.pixels = pixels;
    frame.width = frame_width;
    frame.height = frame_height;
    frame.format = TARN_FORMAT_GRAY;
    tarn_answer answer;
    TARN_INIT(answer);
    for (int i = 0; i < frames; ++i) {
        draw(pixels, i * step);
        if (tarn.feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer) != TARN_OK || !answer.taken)
            return complain(tarn.reason_name(answer.why));
    }

    tarn_image view;
    TARN_INIT(view);
    tarn_picture* preview = NULL;
    if (tarn.preview(sweep, &preview, NULL) != TARN_OK || tarn.picture_view(preview, &view) != TARN_OK)
        return complain("preview");
    printf("preview: %d x %d\n", view.width, view.height);
    tarn.picture_free(preview);

    tarn_panorama* panorama = NULL;
    tarn_panorama_info info;
    TARN_INIT(info);
    const unsigned char* bytes = NULL;
    size_t count = 0;
    if (tarn.finish(sweep, NULL, &panorama) != TARN_OK || tarn.get_info(panorama, &info) != TARN_OK
        || tarn.panorama_view(panorama, &view) != TARN_OK || tarn.jpeg(panorama, &bytes, &count) != TARN_OK)
        return complain("finish");
    printf("panorama: %d x %d, %lu bytes, of %d key frames\n", view.width, view.height, (unsigned long)count,
           info.key_frames);
    /* Turned: what was wide is high. */
    const int good =
        info.extent == TARN_EXTENT_WHOLE && view.height > frame_width && bytes[0] == 0xff && bytes[1] == 0xd8;
    tarn.panorama_free(panorama);
    tarn.sweep_free(sweep);
    return good;
}

int main(int argc, char* argv[])
{
    void* const library = argc < 2 ? NULL : dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "usage: dlopen_host LIBRARY NAME...\n%s\n", argc < 2 ? "" : dlerror());
        return 2;
    }
    for (int i = 2; i < argc; ++i) {
        void* address = NULL;
        if (!find(library, argv[i], &address))
            return 1;
    }
    if (!find_all(library) || strcmp(tarn.version(), TARN_VERSION_STRING) != 0 || !stitch())
        return 1;
    /* Closing it and opening it again does no harm; what was found stays. */
    if (dlclose(library) != 0 || !stitch())
        return 1;
    printf("%d names\n", argc - 2);
    return 0;
}
