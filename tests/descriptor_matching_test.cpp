// SPDX-License-Identifier: Apache-2.0
//
// Matching of descriptor sets, and random choice of keypoints.
#include <algorithm>
#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "descriptor_matching.h"
#include "reference/matching.h"
#include "support/random_input.h"

namespace {

using matches_t = std::vector<cv::DMatch>;
using tarn::test::random_input;

constexpr float usual_conf = 0.2f;

matches_t matched(const cv::Mat& query, const cv::Mat& train, float conf = usual_conf)
{
    matches_t matches;
    single_match(query, train, matches, conf);
    return matches;
}

bool are_same(const matches_t& a, const matches_t& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const cv::DMatch& x, const cv::DMatch& y) {
        return x.queryIdx == y.queryIdx && x.trainIdx == y.trainIdx && x.imgIdx == y.imgIdx && x.distance == y.distance;
    });
}

// Descriptors as the worker makes them: bytes scaled to 0 … 1, of which a part has a near twin in `train`.
struct descriptor_sets {
    cv::Mat query;
    cv::Mat train;
};

descriptor_sets random_sets(random_input& random, int count)
{
    constexpr int width = 61;
    cv::Mat query;
    random.noise(cv::Size(width, count), CV_8UC1).convertTo(query, CV_32F, 1.0 / 255.0);
    cv::Mat train;
    random.noise(cv::Size(width, count), CV_8UC1).convertTo(train, CV_32F, 1.0 / 255.0);
    for (int i = 0; i < count; ++i) {
        if (random.one_in(2)) {
            query.row(i).copyTo(train.row(random.integer(0, count - 1)));
        }
    }
    for (int i = 0; i < count; ++i) {
        train.at<float>(i, random.integer(0, width - 1)) = random.real(0.0f, 1.0f);
    }
    return {query, train};
}

TEST(SingleMatch, NearestDescriptorIsAppendedWithItsIndicesAndDistance)
{
    const cv::Mat query = (cv::Mat_<float>(2, 2) << 0, 0, 100, 100);
    const cv::Mat train = (cv::Mat_<float>(3, 2) << 50, 0, 100, 103, 0, 4);
    const matches_t matches = matched(query, train);
    ASSERT_EQ(matches.size(), 2U);
    EXPECT_EQ(matches[0].queryIdx, 0);
    EXPECT_EQ(matches[0].trainIdx, 2);
    EXPECT_EQ(matches[0].imgIdx, 0);
    EXPECT_EQ(matches[0].distance, 4.0f);
    EXPECT_EQ(matches[1].queryIdx, 1);
    EXPECT_EQ(matches[1].trainIdx, 1);
    EXPECT_EQ(matches[1].distance, 3.0f);
}

TEST(SingleMatch, DistanceOfExactlyFourFifthsOfTheSecondIsRejected)
{
    // 4 and 5: (1 - 0.2) * 5 is 4 in single precision.
    const cv::Mat query = (cv::Mat_<float>(1, 2) << 0, 0);
    EXPECT_TRUE(matched(query, (cv::Mat_<float>(2, 2) << 0, 4, 5, 0)).empty());
    // The next float below 4 is nearer than that.
    EXPECT_EQ(matched(query, (cv::Mat_<float>(2, 2) << 0, std::nextafter(4.0f, 0.0f), 5, 0)).size(), 1U);
}

TEST(SingleMatch, TwoEquallyNearDescriptorsAreRejected)
{
    const cv::Mat query = (cv::Mat_<float>(1, 2) << 0, 0);
    EXPECT_TRUE(matched(query, (cv::Mat_<float>(2, 2) << 0, 4, 4, 0)).empty());
    EXPECT_TRUE(matched(query, (cv::Mat_<float>(2, 2) << 0, 0, 0, 0)).empty());
}

TEST(SingleMatch, ConfidenceSetsTheRatio)
{
    const cv::Mat query = (cv::Mat_<float>(1, 2) << 0, 0);
    const cv::Mat train = (cv::Mat_<float>(2, 2) << 0, 3, 4, 0);
    EXPECT_EQ(matched(query, train, 0.0f).size(), 1U);
    EXPECT_TRUE(matched(query, train, 0.25f).empty());  // exactly three quarters
    EXPECT_TRUE(matched(query, train, 0.5f).empty());
    EXPECT_TRUE(matched(query, train, 1.0f).empty());
}

TEST(SingleMatch, MatchesAreAppendedNotReplaced)
{
    const cv::Mat query = (cv::Mat_<float>(1, 2) << 0, 0);
    const cv::Mat train = (cv::Mat_<float>(2, 2) << 0, 1, 5, 0);
    matches_t matches = {cv::DMatch(7, 8, 9, 10.0f)};
    single_match(query, train, matches, usual_conf);
    single_match(query, train, matches, usual_conf);
    ASSERT_EQ(matches.size(), 3U);
    EXPECT_EQ(matches[0].queryIdx, 7);
    EXPECT_EQ(matches[1].queryIdx, 0);
    EXPECT_EQ(matches[2].queryIdx, 0);
}

TEST(SingleMatch, MatchesStandInTheOrderOfTheQueryRows)
{
    random_input random;
    const descriptor_sets sets = random_sets(random, 200);
    const matches_t matches = matched(sets.query, sets.train);
    EXPECT_GT(matches.size(), 30U);
    EXPECT_TRUE(std::is_sorted(matches.begin(), matches.end(),
                               [](const cv::DMatch& a, const cv::DMatch& b) { return a.queryIdx < b.queryIdx; }));
}

TEST(SingleMatch, EmptyQueryGivesNoMatches)
{
    const cv::Mat train = (cv::Mat_<float>(2, 2) << 0, 1, 5, 0);
    EXPECT_TRUE(matched(cv::Mat(), train).empty());
    EXPECT_TRUE(matched(cv::Mat(0, 2, CV_32F), train).empty());
}

TEST(SingleMatch, TrainSetOfFewerThanTwoRowsRaisesTheMatchersError)
{
    const cv::Mat query = (cv::Mat_<float>(2, 2) << 0, 1, 5, 0);
    matches_t matches = {cv::DMatch(7, 8, 9, 10.0f)};
    EXPECT_THROW(single_match(query, cv::Mat(), matches, usual_conf), cv::Exception);
    EXPECT_THROW(single_match(query, cv::Mat(0, 2, CV_32F), matches, usual_conf), cv::Exception);
    EXPECT_THROW(single_match(query, query.row(0), matches, usual_conf), cv::Exception);
    EXPECT_EQ(matches.size(), 1U);
}

TEST(SingleMatch, MismatchedTypesOrWidthsRaiseTheMatchersError)
{
    const cv::Mat floats = (cv::Mat_<float>(3, 2) << 0, 1, 5, 0, 9, 9);
    cv::Mat bytes;
    floats.convertTo(bytes, CV_8U);
    EXPECT_THROW(matched(bytes, floats), cv::Exception);
    EXPECT_THROW(matched(floats, bytes), cv::Exception);
    EXPECT_THROW(matched(floats, cv::Mat::zeros(3, 3, CV_32F)), cv::Exception);
}

TEST(SingleMatch, EqualsReferenceOnAThreadOfItsOwn)
{
    random_input random;
    for (const int count : {2, 3, 5, 30, 300, 800}) {
        const descriptor_sets sets = random_sets(random, count);
        for (const float conf : {usual_conf, 0.0f, random.real(0.0f, 1.0f)}) {
            matches_t expected;
            reference::single_match(sets.query, sets.train, expected, conf);
            EXPECT_TRUE(are_same(expected, matched(sets.query, sets.train, conf))) << count << ", " << conf;
        }
    }
}

TEST(SingleMatch, EqualDescriptorsGiveEqualMatchesWhateverTheThreadHasDrawnBefore)
{
    random_input random;
    const descriptor_sets sets = random_sets(random, 1500);
    const matches_t expected = matched(sets.query, sets.train);
    for (int i = 0; i < 5; ++i) {
        cv::theRNG().state = static_cast<std::uint64_t>(random.integer(1, 1 << 30));
        EXPECT_TRUE(are_same(expected, matched(sets.query, sets.train)));
    }
    matches_t elsewhere;
    std::thread([&] {
        cv::theRNG().next();
        elsewhere = matched(sets.query, sets.train);
    }).join();
    EXPECT_TRUE(are_same(expected, elsewhere));
}

TEST(SingleMatch, ThreadsOwnRandomNumbersGoOnAsIfNothingHadBeenDrawn)
{
    random_input random;
    const descriptor_sets sets = random_sets(random, 50);
    cv::theRNG().state = 12345;
    matched(sets.query, sets.train);
    EXPECT_EQ(cv::theRNG().state, 12345U);
    EXPECT_THROW(matched(sets.query, cv::Mat()), cv::Exception);
    EXPECT_EQ(cv::theRNG().state, 12345U);
}

std::vector<cv::KeyPoint> keypoints(int count)
{
    std::vector<cv::KeyPoint> result;
    for (int i = 0; i < count; ++i) {
        result.emplace_back(static_cast<float>(i), static_cast<float>(2 * i), 1.0f);
    }
    return result;
}

// The x coordinates, sorted.
std::vector<float> sorted_x(const std::vector<cv::Point2f>& points)
{
    std::vector<float> result;
    for (const cv::Point2f& point : points) {
        EXPECT_EQ(point.y, 2 * point.x);
        result.push_back(point.x);
    }
    std::sort(result.begin(), result.end());
    return result;
}

TEST(RandomSelectKeyPoints, MaximumAboveTheCountGivesAllPositionsInShuffledOrder)
{
    std::vector<cv::Point2f> points;
    randomSelectKeyPoints(keypoints(100), points, 1000);
    std::vector<float> all(100);
    for (int i = 0; i < 100; ++i) {
        all[static_cast<size_t>(i)] = static_cast<float>(i);
    }
    EXPECT_EQ(sorted_x(points), all);
    // One order in 100! is the old one.
    EXPECT_FALSE(std::is_sorted(points.begin(), points.end(),
                                [](const cv::Point2f& a, const cv::Point2f& b) { return a.x < b.x; }));
}

TEST(RandomSelectKeyPoints, SelectionHasTheMaximumNumberAndNoPositionTwice)
{
    std::vector<cv::Point2f> points;
    randomSelectKeyPoints(keypoints(100), points, 30);
    std::vector<float> chosen = sorted_x(points);
    EXPECT_EQ(chosen.size(), 30U);
    EXPECT_EQ(std::unique(chosen.begin(), chosen.end()), chosen.end());
}

TEST(RandomSelectKeyPoints, MaximumOfZeroOrLessAddsNothing)
{
    std::vector<cv::Point2f> points;
    randomSelectKeyPoints(keypoints(10), points, 0);
    randomSelectKeyPoints(keypoints(10), points, -1);
    randomSelectKeyPoints(keypoints(10), points, -2147483647 - 1);
    EXPECT_TRUE(points.empty());
}

TEST(RandomSelectKeyPoints, PositionsAreAppendedNotReplaced)
{
    std::vector<cv::Point2f> points = {{-1.0f, -2.0f}};
    randomSelectKeyPoints(keypoints(10), points, 3);
    ASSERT_EQ(points.size(), 4U);
    EXPECT_EQ(points[0], cv::Point2f(-1.0f, -2.0f));
}

TEST(RandomSelectKeyPoints, NoKeypointsAddNothing)
{
    std::vector<cv::Point2f> points;
    randomSelectKeyPoints({}, points, 5);
    EXPECT_TRUE(points.empty());
}

TEST(RandomSelectKeyPoints, SelectionsDiffer)
{
    std::vector<cv::Point2f> first;
    std::vector<cv::Point2f> second;
    randomSelectKeyPoints(keypoints(1000), first, 20);
    randomSelectKeyPoints(keypoints(1000), second, 20);
    EXPECT_NE(first, second);
}

}  // namespace
