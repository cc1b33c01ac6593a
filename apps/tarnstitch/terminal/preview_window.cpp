// SPDX-License-Identifier: Apache-2.0
//
// Drawing and showing, by OpenCV's highgui where it is there at build time.
#include "preview_window.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <opencv2/imgproc.hpp>
#ifdef TARNSTITCH_WITH_WINDOW
#include <opencv2/highgui.hpp>
#endif

#include "host_error.h"
#include "interruption.h"
#include "media_logs.h"

namespace tarn::host {

cv::Mat window_picture(const frame_record& frame, frame_turn turn)
{
    if (frame.preview.pixels.empty()) {
        return cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(0));
    }
    const cv::Mat preview = preview_for_viewer(frame.preview.pixels, turn);
    cv::Rect canvas(cv::Point(0, 0), preview.size());
    std::vector<cv::Point> outline;
    if (frame.preview.has_outline) {
        for (const cv::Point2f& corner : frame.preview.outline) {
            const cv::Point2f point = preview_point_for_viewer(corner, frame.preview.pixels.size(), turn);
            constexpr float far_away = 20000.0f;  // px; a corner thrown far off must not make the canvas huge
            if (!(std::fabs(point.x) < far_away && std::fabs(point.y) < far_away)) {
                outline.clear();
                break;
            }
            outline.emplace_back(cvRound(point.x), cvRound(point.y));
        }
    }
    if (!outline.empty()) {
        constexpr int rim = 3;  // px, for the line's width
        cv::Rect box = cv::boundingRect(outline);
        box -= cv::Point(rim, rim);
        box += cv::Size(2 * rim, 2 * rim);
        // What a jumping frame would add to the canvas beyond this is not worth showing.
        const cv::Rect widest(-preview.cols, -preview.rows, 3 * preview.cols, 3 * preview.rows);
        canvas |= box & widest;
    }
    cv::Mat picture(canvas.size(), CV_8UC3, cv::Scalar::all(48));
    preview.copyTo(picture(cv::Rect(-canvas.tl(), preview.size())));
    if (!outline.empty()) {
        const cv::Scalar green(80, 220, 80);
        const cv::Scalar red(60, 60, 240);
        std::for_each(outline.begin(), outline.end(), [&canvas](cv::Point& point) { point -= canvas.tl(); });
        cv::polylines(picture, outline, true, frame.answer.taken ? green : red, 2, cv::LINE_AA);
    }
    return picture;
}

#ifdef TARNSTITCH_WITH_WINDOW

namespace {

constexpr const char* window_name = "tarnstitch";

/// What the child of check_display does. A display that never answers keeps it until a signal ends it, or its parent
/// has ended.
[[noreturn]] void try_to_open_a_window(pid_t parent)
{
    end_by_signals_again();
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
    if (getppid() != parent) {
        _exit(EXIT_FAILURE);
    }
    const int null_device = open("/dev/null", O_WRONLY);
    dup2(null_device, STDOUT_FILENO);
    dup2(null_device, STDERR_FILENO);
    try {
        cv::namedWindow(window_name, cv::WINDOW_NORMAL);
        _exit(EXIT_SUCCESS);
    } catch (const cv::Exception&) {
        _exit(EXIT_FAILURE);
    }
}

}  // namespace

void check_display()
{
    static constexpr std::array variables = {"DISPLAY", "WAYLAND_DISPLAY"};
    const bool named = std::any_of(variables.begin(), variables.end(), [](const char* variable) {
        const char* const value = std::getenv(variable);
        return value != nullptr && *value != '\0';
    });
    const char* const no_display = "--show: there is no display to show a window on";
    if (!named) {
        throw host_error(exit_code::usage, no_display);
    }
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        try_to_open_a_window(parent);
    }
    int status = 0;
    const bool ended = child != -1 && waitpid(child, &status, 0) == child;
    if (ended && WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) {
        throw host_error(exit_code::stopped, "stopped before the first frame; nothing is written");  // Ctrl-C
    }
    if (!ended || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw host_error(exit_code::usage, std::string(no_display) + ", though the environment names one");
    }
}

preview_window::preview_window(frame_turn turn) : turn_(turn)
{
    const quiet_decoder no_remarks_on_the_desktop;
    cv::namedWindow(window_name, cv::WINDOW_NORMAL | cv::WINDOW_KEEPRATIO | cv::WINDOW_GUI_NORMAL);
}

preview_window::~preview_window()
{
    try {
        cv::destroyAllWindows();
    } catch (const cv::Exception&) {
        return;  // it is closed already
    }
}

void preview_window::frame_done(const frame_record& frame)
{
    const cv::Mat picture = window_picture(frame, turn_);
    try {
        // As large as it is, up to what most screens hold.
        constexpr double most_width = 1600.0;
        constexpr double most_height = 900.0;
        const double scale = std::min({1.0, most_width / picture.cols, most_height / picture.rows});
        cv::imshow(window_name, picture);
        cv::resizeWindow(window_name, std::max(1, static_cast<int>(picture.cols * scale)),
                         std::max(1, static_cast<int>(picture.rows * scale)));
        open_ = true;
    } catch (const cv::Exception&) {
        ask_to_stop(stop_kind::give_up);  // the display has gone
    }
    look_at_keys();
}

void preview_window::waiting(int)
{
    look_at_keys();
}

void preview_window::look_at_keys() const
{
    constexpr int escape = 27;
    try {
        const int key = cv::waitKey(1) & 0xff;
        const bool closed = open_ && cv::getWindowProperty(window_name, cv::WND_PROP_VISIBLE) < 1.0;
        if (key == escape || closed) {
            ask_to_stop(stop_kind::give_up);
        } else if (key == 'q') {
            ask_to_stop(stop_kind::finish);
        }
    } catch (const cv::Exception&) {
        ask_to_stop(stop_kind::give_up);
    }
}

#else

void check_display()
{
    throw host_error(exit_code::usage, "--show: this tarnstitch was built without windows");
}

preview_window::preview_window(frame_turn turn) : turn_(turn)
{
}

preview_window::~preview_window() = default;

void preview_window::frame_done(const frame_record&)
{
}

void preview_window::waiting(int)
{
}

void preview_window::look_at_keys() const
{
}

#endif

}  // namespace tarn::host
