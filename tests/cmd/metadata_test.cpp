// SPDX-License-Identifier: Apache-2.0
//
// Metadata that goes from the input to the outputs, and what does not.
#include <ctime>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "frame_source.h"
#include "metadata.h"
#include "support/directory_fixture.h"

using namespace tarn::host;

namespace {

cv::Mat some_picture()
{
    cv::Mat picture(24, 32, CV_8UC3);
    cv::randu(picture, 0, 256);
    return picture;
}

std::vector<unsigned char> encoded(const std::string& ending)
{
    std::vector<unsigned char> bytes;
    cv::imencode(ending, some_picture(), bytes);
    return bytes;
}

Exiv2::ExifData exif_in(const std::vector<unsigned char>& bytes)
{
    const auto image = Exiv2::ImageFactory::open(bytes.data(), static_cast<long>(bytes.size()));
    image->readMetadata();
    EXPECT_TRUE(image->xmpData().empty());  // where viewers look for projections
    return image->exifData();
}

std::string text_of(const Exiv2::ExifData& exif, const std::string& key)
{
    const auto found = exif.findKey(Exiv2::ExifKey(key));
    return found == exif.end() ? "" : found->toString();
}

class Metadata : public tarn::test::directory_fixture {
protected:
    /// A picture with the tags of a camera.
    std::string photo(int orientation) const
    {
        std::string path = at("photo.jpg");
        cv::imwrite(path, some_picture());
        const auto image = Exiv2::ImageFactory::open(path);
        Exiv2::ExifData exif;
        exif["Exif.Image.Make"] = std::string("Maker");
        exif["Exif.Image.Model"] = std::string("Model 7");
        exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(orientation);
        exif["Exif.Photo.DateTimeOriginal"] = std::string("2019:08:07 06:05:04");
        exif["Exif.Photo.BodySerialNumber"] = std::string("12345");
        exif["Exif.GPSInfo.GPSLatitudeRef"] = std::string("N");
        exif["Exif.GPSInfo.GPSLatitude"] = std::string("52/1 30/1 0/1");
        image->setExifData(exif);
        image->writeMetadata();
        return path;
    }

    static source_facts facts_of(const std::string& file, bool video = false)
    {
        source_facts facts;
        facts.files = {file};
        facts.has_times = video;
        return facts;
    }
};

}  // namespace

TEST_F(Metadata, OriginOfTheFirstImageIsPassedOnInEveryFormatThatHoldsIt)
{
    const output_metadata metadata(facts_of(photo(6)));
    for (const char* const ending : {".jpg", ".png", ".tif", ".webp"}) {
        std::vector<unsigned char> bytes = encoded(ending);
        const cv::Mat before = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
        ASSERT_TRUE(metadata.add_to(bytes)) << ending;
        const cv::Mat after = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
        ASSERT_EQ(after.size(), before.size()) << ending;
        EXPECT_EQ(cv::norm(after, before, cv::NORM_INF), 0.0) << ending;
        const Exiv2::ExifData exif = exif_in(bytes);
        EXPECT_EQ(text_of(exif, "Exif.Image.Make"), "Maker") << ending;
        EXPECT_EQ(text_of(exif, "Exif.Image.Model"), "Model 7") << ending;
        EXPECT_EQ(text_of(exif, "Exif.Photo.DateTimeOriginal"), "2019:08:07 06:05:04") << ending;
        EXPECT_EQ(text_of(exif, "Exif.GPSInfo.GPSLatitude"), "52/1 30/1 0/1") << ending;
        EXPECT_EQ(text_of(exif, "Exif.Image.Software").substr(0, 11), "tarnstitch ") << ending;
        // The panorama is upright already, and not the camera's own picture.
        EXPECT_EQ(text_of(exif, "Exif.Image.Orientation").find('6'), std::string::npos) << ending;
        EXPECT_EQ(text_of(exif, "Exif.Photo.BodySerialNumber"), "") << ending;
    }
}

TEST_F(Metadata, NameThatLooksLikeAnAddressIsAFiles)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory_);
    photo(8);
    std::filesystem::create_directory("file:");
    cv::imwrite("file:/photo.jpg", some_picture());
    EXPECT_EQ(exif_orientation("photo.jpg"), 8);
    EXPECT_EQ(exif_orientation("file://photo.jpg"), 0);
    std::filesystem::rename("photo.jpg", "file:/photo.jpg");
    EXPECT_EQ(exif_orientation("file://photo.jpg"), 8);
    std::filesystem::current_path(before);
}

TEST_F(Metadata, NextBestDateOfTheFirstImageComesBeforeThatOfItsFile)
{
    const std::string file = at("undated.jpg");
    const auto date_with = [&file](const Exiv2::ExifData& dates) {
        cv::imwrite(file, some_picture());
        const auto image = Exiv2::ImageFactory::open(file);
        image->setExifData(dates);
        image->writeMetadata();
        std::vector<unsigned char> bytes = encoded(".jpg");
        EXPECT_TRUE(output_metadata(facts_of(file)).add_to(bytes));
        const Exiv2::ExifData exif = exif_in(bytes);
        return text_of(exif, "Exif.Photo.DateTimeOriginal") + text_of(exif, "Exif.Photo.OffsetTimeOriginal");
    };
    Exiv2::ExifData dates;
    dates["Exif.Image.DateTime"] = std::string("2018:01:02 03:04:05");
    EXPECT_EQ(date_with(dates), "2018:01:02 03:04:05");
    dates["Exif.Photo.DateTimeDigitized"] = std::string("2017:01:02 03:04:05");
    dates["Exif.Photo.OffsetTimeDigitized"] = std::string("+02:00");
    EXPECT_EQ(date_with(dates), "2017:01:02 03:04:05+02:00");
}

TEST_F(Metadata, FormatThatHoldsNoneStaysAsItIs)
{
    const output_metadata metadata(facts_of(photo(1)));
    for (const char* const ending : {".bmp", ".ppm"}) {
        std::vector<unsigned char> bytes = encoded(ending);
        const std::vector<unsigned char> before = bytes;
        EXPECT_TRUE(metadata.add_to(bytes)) << ending;
        EXPECT_EQ(bytes, before) << ending;
    }
}

TEST_F(Metadata, ViewersAreToldOfAProjectionWhereThereIsOne)
{
    const output_metadata metadata(facts_of(photo(1)));
    const panorama_view view = {"cylindrical", {3600, 800}, {100, 150, 1200, 480}, 7};
    for (const char* const ending : {".jpg", ".png", ".tif"}) {
        std::vector<unsigned char> bytes = encoded(ending);
        ASSERT_TRUE(metadata.add_to(bytes, view)) << ending;
        const auto image = Exiv2::ImageFactory::open(bytes.data(), static_cast<long>(bytes.size()));
        image->readMetadata();
        const auto tag = [&](const std::string& name) {
            const auto found = image->xmpData().findKey(Exiv2::XmpKey("Xmp.GPano." + name));
            return found == image->xmpData().end() ? "" : found->toString();
        };
        EXPECT_EQ(tag("UsePanoramaViewer"), "True") << ending;
        EXPECT_EQ(tag("ProjectionType"), "cylindrical") << ending;
        EXPECT_EQ(tag("FullPanoWidthPixels"), "3600") << ending;
        EXPECT_EQ(tag("FullPanoHeightPixels"), "800") << ending;
        EXPECT_EQ(tag("CroppedAreaLeftPixels"), "100") << ending;
        EXPECT_EQ(tag("CroppedAreaTopPixels"), "150") << ending;
        EXPECT_EQ(tag("CroppedAreaImageWidthPixels"), "1200") << ending;
        EXPECT_EQ(tag("CroppedAreaImageHeightPixels"), "480") << ending;
        EXPECT_EQ(tag("SourcePhotosCount"), "7") << ending;
        EXPECT_EQ(text_of(image->exifData(), "Exif.Image.Make"), "Maker") << ending;
    }
}

TEST_F(Metadata, BrokenPictureIsLeftAndReported)
{
    const output_metadata metadata(facts_of(photo(1)));
    std::vector<unsigned char> bytes = {0xff, 0xd8, 0xff, 0xe1, 0xff, 0xff, 0x00};
    const std::vector<unsigned char> before = bytes;
    EXPECT_FALSE(metadata.add_to(bytes));
    EXPECT_EQ(bytes, before);
}

TEST_F(Metadata, OrientationIsRead)
{
    EXPECT_EQ(exif_orientation(photo(8)), 8);
    EXPECT_EQ(exif_orientation(at("none.jpg")), 0);
    cv::imwrite(at("plain.jpg"), some_picture());
    EXPECT_EQ(exif_orientation(at("plain.jpg")), 0);
}

TEST_F(Metadata, VideoHasItsOwnDate)
{
    source_facts facts = facts_of(at("clip.mp4"), true);
    std::ofstream(facts.files.front()) << "content";
    facts.recorded = 1614834367;

    std::vector<unsigned char> bytes = encoded(".jpg");
    ASSERT_TRUE(output_metadata(facts).add_to(bytes));
    const Exiv2::ExifData exif = exif_in(bytes);
    EXPECT_EQ(text_of(exif, "Exif.Photo.DateTimeOriginal"), "2021:03:04 05:06:07");
    EXPECT_EQ(text_of(exif, "Exif.Photo.OffsetTimeOriginal"), "+00:00");
    EXPECT_EQ(text_of(exif, "Exif.Image.Make"), "");
}
