/* SPDX-License-Identifier: Apache-2.0
 *
 * Uses every function of the C interface with the type that its header gives it; links the shared library, so a name
 * that is missing there stops the build.
 */
#include <stdio.h>

#include "tarn_c.h"

struct functions {
    const char* (*version)(void);
    int (*version_number)(void);
    const char* (*result_name)(tarn_result);
    const char* (*last_error)(void);
    const char* (*code_name)(int);
    const char* (*code_advice)(int);
    const char* (*direction_name)(int);
    const char* (*pipeline_name)(int);
    const char* (*reason_name)(int);
    const char* (*reason_advice)(int);
    tarn_result (*sweep_begin)(const tarn_sweep_options*, tarn_sweep**);
    tarn_result (*sweep_feed)(tarn_sweep*, const tarn_image*, int, tarn_answer*);
    tarn_result (*sweep_finish)(tarn_sweep*, const tarn_finish_options*, tarn_panorama**);
    tarn_result (*sweep_cancel)(tarn_sweep*);
    int (*sweep_is_current)(tarn_sweep*);
    tarn_result (*sweep_get_status)(tarn_sweep*, tarn_status*);
    tarn_result (*sweep_wait_for_room)(tarn_sweep*, int, int, int*);
    tarn_result (*sweep_preview)(tarn_sweep*, tarn_picture**, tarn_preview_info*);
    tarn_result (*sweep_directory)(tarn_sweep*, const char**);
    void (*sweep_free)(tarn_sweep*);
    tarn_result (*picture_view)(tarn_picture*, tarn_image*);
    tarn_result (*picture_keep)(tarn_picture*, tarn_picture**);
    void (*picture_free)(tarn_picture*);
    tarn_result (*panorama_get_info)(tarn_panorama*, tarn_panorama_info*);
    tarn_result (*panorama_last_answer)(tarn_panorama*, tarn_answer*);
    tarn_result (*panorama_view)(tarn_panorama*, tarn_image*);
    tarn_result (*panorama_jpeg)(tarn_panorama*, const unsigned char**, size_t*);
    tarn_result (*panorama_save)(tarn_panorama*, const char*);
    void (*panorama_free)(tarn_panorama*);
};

int main(void)
{
    const struct functions used = {&tarn_version,
                                   &tarn_version_number,
                                   &tarn_result_name,
                                   &tarn_last_error,
                                   &tarn_code_name,
                                   &tarn_code_advice,
                                   &tarn_direction_name,
                                   &tarn_pipeline_name,
                                   &tarn_reason_name,
                                   &tarn_reason_advice,
                                   &tarn_sweep_begin,
                                   &tarn_sweep_feed,
                                   &tarn_sweep_finish,
                                   &tarn_sweep_cancel,
                                   &tarn_sweep_is_current,
                                   &tarn_sweep_get_status,
                                   &tarn_sweep_wait_for_room,
                                   &tarn_sweep_preview,
                                   &tarn_sweep_directory,
                                   &tarn_sweep_free,
                                   &tarn_picture_view,
                                   &tarn_picture_keep,
                                   &tarn_picture_free,
                                   &tarn_panorama_get_info,
                                   &tarn_panorama_last_answer,
                                   &tarn_panorama_view,
                                   &tarn_panorama_jpeg,
                                   &tarn_panorama_save,
                                   &tarn_panorama_free};
    /* Called by their addresses, of things that are not there. */
    int wrong = used.sweep_cancel(NULL) != TARN_ERROR_NO_SUCH_HANDLE;
    used.sweep_free(NULL);
    used.picture_free(NULL);
    used.panorama_free(NULL);
    wrong += used.sweep_is_current(NULL);
    wrong += used.version_number() != TARN_VERSION_NUMBER;
    printf("version %s, %s: %s\n", used.version(), used.result_name(TARN_ERROR_NO_SUCH_HANDLE), used.last_error());
    return wrong;
}
