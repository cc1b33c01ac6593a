// SPDX-License-Identifier: Apache-2.0
#include "argument_check.h"

#include "jni_support.h"

namespace tarn::binding {

namespace {

constexpr std::int64_t bytes_per_pixel = 4;  // R,G,B,A

template <typename... Part>
std::string joined(const Part&... part)
{
    const auto text = [](const auto& value) {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
            return std::to_string(value);
        } else {
            return std::string(value);
        }
    };
    return (text(part) + ...);
}

void not_null(const void* reference, const char* name)
{
    if (reference == nullptr) {
        throw java_exception(null_pointer_exception, joined(name, " is null"));
    }
}

[[noreturn]] void refuse(const std::string& message)
{
    throw java_exception(illegal_argument_exception, message);
}

}  // namespace

std::string fault_of(const frame_layout& layout)
{
    if (layout.width < 1 || layout.height < 1) {
        return joined("width is ", layout.width, " and height is ", layout.height, "; both must be at least 1");
    }
    const std::int64_t row = layout.width * bytes_per_pixel;
    if (layout.row_stride < row) {
        return joined("rowStride is ", layout.row_stride, "; a row of ", layout.width, " pixels has ", row,
                      " bytes");
    }
    const std::int64_t needed = (layout.height - 1) * layout.row_stride + row;
    if (layout.capacity < needed) {
        return joined("rgba has a capacity of ", layout.capacity, " bytes; ", layout.width, " x ",
                      layout.height, " pixels with a rowStride of ", layout.row_stride, " need ", needed);
    }
    return {};
}

std::string argument_check::directory(jbyteArray path) const
{
    not_null(path, "the path");
    const jsize length = env_->GetArrayLength(path);
    std::string bytes(static_cast<std::size_t>(length), '\0');
    if (length > 0) {
        env_->GetByteArrayRegion(path, 0, length, reinterpret_cast<jbyte*>(bytes.data()));
    }
    const std::size_t zero = bytes.find('\0');
    if (zero != std::string::npos) {
        refuse(joined("the path \"", bytes.c_str(), "\" has a zero byte at index ", zero));
    }
    if (!bytes.empty() && bytes.back() != '/') {
        refuse(joined("the path \"", bytes, "\" does not end in \"/\""));
    }
    return bytes;
}

cv::Mat argument_check::frame(jobject rgba, jint width, jint height, jint row_stride) const
{
    not_null(rgba, "rgba");
    void* const pixels = env_->GetDirectBufferAddress(rgba);
    const jlong capacity = env_->GetDirectBufferCapacity(rgba);
    if (capacity < 0) {
        refuse("rgba is not a direct buffer; ByteBuffer.allocateDirect makes one");
    }
    const std::string fault = fault_of({capacity, width, height, row_stride});
    if (!fault.empty()) {
        refuse(fault);
    }
    return {height, width, CV_8UC4, pixels, static_cast<std::size_t>(row_stride)};
}

int argument_check::direction(jint hint) const
{
    constexpr jint none = 0;
    constexpr jint left = 4;
    if (hint < none || hint > left) {
        refuse(joined("hint is ", hint, "; directions have the codes ", none, " to ", left));
    }
    return hint;
}

jintArray argument_check::size(jintArray size) const
{
    not_null(size, "size");
    constexpr jsize width_and_height = 2;
    const jsize length = env_->GetArrayLength(size);
    if (length != width_and_height) {
        refuse(joined("size has a length of ", length, " instead of ", width_and_height));
    }
    return size;
}

}  // namespace tarn::binding
