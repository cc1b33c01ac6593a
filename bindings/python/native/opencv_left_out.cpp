// SPDX-License-Identifier: Apache-2.0
//
// In the place of OpenCV's picture formats, where the native half holds OpenCV itself: of all of them the library uses
// one, the JPEG, and the others would bring along some 130 shared libraries. The encoder is told what OpenCV's tells
// it, so that the bytes are the same. Nor is a window ever drawn to by OpenGL.
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>  // behind <cstdio>, which it needs
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

namespace {

constexpr int quality = 95;  // of 100: OpenCV's, unless it is told otherwise

/// The encoder's errors, which end in error_exit, where it was begun.
struct encoder_errors {
    jpeg_error_mgr base;  ///< the first member, so that the encoder's pointer to it is one to this
    std::jmp_buf begun;
};

extern "C" void leave_encoder(j_common_ptr encoder)
{
    std::longjmp(reinterpret_cast<encoder_errors*>(encoder->err)->begun, 1);
}

extern "C" void say_nothing(j_common_ptr /*encoder*/)
{
}

/// Encodes B,G,R. The jump out of the encoder passes no object that would have to be destroyed.
/// @returns false where the encoder refuses
bool encode(const unsigned char* first, std::size_t row_stride, int width, int height, unsigned char** bytes,
            unsigned long* count)
{
    jpeg_compress_struct encoder = {};
    encoder_errors errors = {};
    encoder.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = leave_encoder;
    errors.base.output_message = say_nothing;
    if (setjmp(errors.begun) != 0) {  // NOLINT(cert-err52-cpp): how this encoder tells of errors
        jpeg_destroy_compress(&encoder);
        return false;
    }
    jpeg_create_compress(&encoder);
    jpeg_mem_dest(&encoder, bytes, count);
    encoder.image_width = static_cast<JDIMENSION>(width);
    encoder.image_height = static_cast<JDIMENSION>(height);
    encoder.input_components = 3;
    encoder.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, quality, TRUE);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        auto* const row = const_cast<JSAMPLE*>(first + encoder.next_scanline * row_stride);  // only read
        JSAMPROW rows[] = {row};
        jpeg_write_scanlines(&encoder, rows, 1);
    }
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    return true;
}

}  // namespace

namespace cv {

bool imencode(const String& /*extension*/, InputArray given, std::vector<uchar>& encoded,
              const std::vector<int>& /*parameters*/)
{
    const Mat image = given.getMat();
    CV_Assert(image.type() == CV_8UC3 && !image.empty());
    unsigned char* bytes = nullptr;
    unsigned long count = 0;
    const bool is_encoded = encode(image.ptr(), image.step[0], image.cols, image.rows, &bytes, &count);
    const std::unique_ptr<unsigned char, decltype(&std::free)> until_the_end(bytes, &std::free);
    if (!is_encoded) {
        CV_Error(Error::StsOutOfRange, "the picture cannot be encoded as a JPEG");
    }
    encoded.assign(bytes, bytes + count);
    return true;
}

bool haveImageWriter(const String& /*name*/)
{
    return false;
}

}  // namespace cv

extern "C" void* glXGetProcAddressARB(const unsigned char* /*name*/)
{
    return nullptr;
}
