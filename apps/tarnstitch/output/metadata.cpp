// SPDX-License-Identifier: Apache-2.0
//
// Reading and writing Exif, by libexiv2.
#include "metadata.h"

#include <array>
#include <ctime>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <sys/stat.h>

namespace tarn::host {

namespace {

constexpr const char* date_key = "Exif.Photo.DateTimeOriginal";
constexpr const char* offset_key = "Exif.Photo.OffsetTimeOriginal";

bool is_passed_on(const std::string& key)
{
    static constexpr std::array keys = {"Exif.Image.Make", "Exif.Image.Model", date_key, offset_key,
                                        "Exif.Photo.SubSecTimeOriginal"};
    for (const char* const one : keys) {
        if (key == one) {
            return true;
        }
    }
    return key.rfind("Exif.GPSInfo.", 0) == 0;
}

/// The Exif data of an image file; none when it has none, or is none.
Exiv2::ExifData exif_of(const std::string& file)
{
    try {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        const auto image = Exiv2::ImageFactory::open(as_path(file));
        image->readMetadata();
        return image->exifData();
    } catch (const std::exception&) {
        return {};
    }
}

bool is_regular(const std::string& file, std::time_t& changed)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    changed = status.st_mtime;
    return true;
}

/// "2024:06:11 09:30:00" and the zone that it is in, "+02:00".
void put_date(Exiv2::ExifData& exif, std::time_t time, bool utc)
{
    std::tm parts = {};
    if ((utc ? gmtime_r(&time, &parts) : localtime_r(&time, &parts)) == nullptr) {
        return;
    }
    std::array<char, 32> text{};
    if (std::strftime(text.data(), text.size(), "%Y:%m:%d %H:%M:%S", &parts) > 0) {
        exif[date_key] = std::string(text.data());
    }
    if (std::strftime(text.data(), text.size(), "%z", &parts) > 0) {
        exif[offset_key] = std::string(text.data()).insert(3, ":");  // strftime's "+0200" with a colon
    }
}

/// Of an image that does not say when it was taken: when it was digitised, or else changed last, tells more than
/// when its file was.
void put_next_best_date(Exiv2::ExifData& exif, const Exiv2::ExifData& recorded)
{
    static constexpr std::array<std::array<const char*, 2>, 2> dates = {
        {{"Exif.Photo.DateTimeDigitized", "Exif.Photo.OffsetTimeDigitized"},
         {"Exif.Image.DateTime", "Exif.Photo.OffsetTime"}}};
    for (const auto& [key, zone_key] : dates) {
        const auto date = recorded.findKey(Exiv2::ExifKey(key));
        if (date == recorded.end() || date->count() == 0) {
            continue;
        }
        exif[date_key] = date->toString();
        const auto zone = recorded.findKey(Exiv2::ExifKey(zone_key));
        if (zone != recorded.end()) {
            exif[offset_key] = zone->toString();
        }
        return;
    }
}

/// All that a viewer needs to show the picture as the part of the surroundings that it is.
void put_view(Exiv2::XmpData& xmp, const panorama_view& view)
{
    const auto put = [&xmp](const char* key, const std::string& value) {
        xmp[std::string("Xmp.GPano.") + key] = value;
    };
    put("UsePanoramaViewer", "True");
    put("ProjectionType", view.projection);
    put("FullPanoWidthPixels", std::to_string(view.whole.width));
    put("FullPanoHeightPixels", std::to_string(view.whole.height));
    put("CroppedAreaLeftPixels", std::to_string(view.shown.x));
    put("CroppedAreaTopPixels", std::to_string(view.shown.y));
    put("CroppedAreaImageWidthPixels", std::to_string(view.shown.width));
    put("CroppedAreaImageHeightPixels", std::to_string(view.shown.height));
    put("SourcePhotosCount", std::to_string(view.photos));
    put("StitchingSoftware", std::string("tarnstitch ") + TARNSTITCH_VERSION);
}

}  // namespace

struct output_metadata::tags {
    Exiv2::ExifData exif;
};

int exif_orientation(const std::string& file)
{
    const Exiv2::ExifData exif = exif_of(file);
    const auto found = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    if (found == exif.end() || found->count() == 0) {
        return 0;
    }
    constexpr long most = 8;
    const auto value = found->value().toLong();
    return value >= 1 && value <= most ? static_cast<int>(value) : 0;
}

output_metadata::output_metadata(const source_facts& input) : tags_(std::make_unique<tags>())
{
    Exiv2::ExifData& exif = tags_->exif;
    std::time_t changed = std::time(nullptr);
    const std::string& first = input.files.front();
    const bool regular = is_regular(first, changed);
    if (regular && !input.has_times) {
        const Exiv2::ExifData recorded = exif_of(first);
        for (const Exiv2::Exifdatum& tag : recorded) {
            if (is_passed_on(tag.key())) {
                exif.add(tag);
            }
        }
        if (exif.findKey(Exiv2::ExifKey(date_key)) == exif.end()) {
            put_next_best_date(exif, recorded);
        }
    }
    if (exif.findKey(Exiv2::ExifKey(date_key)) == exif.end()) {
        put_date(exif, input.recorded ? static_cast<std::time_t>(*input.recorded) : changed,
                 input.recorded.has_value());
    }
    exif["Exif.Image.Software"] = std::string("tarnstitch ") + TARNSTITCH_VERSION;
}

output_metadata::~output_metadata() = default;

bool output_metadata::add_to(std::vector<unsigned char>& encoded_image, const panorama_view& view) const
{
    try {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        const auto image = Exiv2::ImageFactory::open(encoded_image.data(), static_cast<long>(encoded_image.size()));
        const Exiv2::AccessMode mode = image->checkMode(Exiv2::mdExif);
        if (mode != Exiv2::amWrite && mode != Exiv2::amReadWrite) {
            return true;
        }
        image->readMetadata();
        // Beside those that are there: a TIFF's own tags say how its pixels are stored.
        for (const Exiv2::Exifdatum& tag : tags_->exif) {
            image->exifData()[tag.key()] = tag.value();
        }
        const Exiv2::AccessMode xmp_mode = image->checkMode(Exiv2::mdXmp);
        if (!view.projection.empty() && (xmp_mode == Exiv2::amWrite || xmp_mode == Exiv2::amReadWrite)) {
            put_view(image->xmpData(), view);
        }
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        std::vector<unsigned char> result(io.size());
        if (io.open() != 0
            || io.read(result.data(), static_cast<long>(result.size())) != static_cast<long>(result.size())) {
            return false;
        }
        io.close();
        encoded_image = std::move(result);
        return true;
    } catch (const Exiv2::AnyError& error) {
        return error.code() == Exiv2::kerMemoryContainsUnknownImageType;  // a format that exiv2 has no idea of
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace tarn::host
