// SPDX-License-Identifier: GPL-2.0-or-later
// usage: packet_faults packet ROW rtmp|srt POLICY
//        packet_faults stop|destroy MOMENT rtmp|srt TIMES POLICY
//        packet_faults day HOURS POLICY
// Plays one row of the fault lab and prints its result as the last line, in JSON.
#include "encoders.hpp"
#include "mux/output_type.hpp"
#include "rig.hpp"
#include "rows.hpp"
#include "testbed/obs_session.hpp"

#include <QApplication>
#include <QTemporaryDir>

#include <util/base.h>
#include <util/platform.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

namespace {

// Into the row's folder, with the time in seconds.
void on_line(int, const char *format, va_list arguments, void *) {
    fprintf(stderr, "%.3f ", static_cast<double>(os_gettime_ns()) / 1e9);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
}

QJsonObject play(const std::vector<std::string> &words) {
    using namespace corvane::lab;
    if (words.size() == 4 && words[0] == "packet") {
        return play_packet_row(words[1], words[2] == "srt", words[3]);
    }
    if (words.size() == 5 && (words[0] == "stop" || words[0] == "destroy")) {
        return play_life_row(words[0], words[1], words[2] == "srt", std::stoi(words[3]), words[4]);
    }
    if (words.size() == 3 && words[0] == "day") {
        return play_day_row(std::stoi(words[1]), words[2]);
    }
    throw std::runtime_error("no such row");
}

} // namespace

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    base_set_log_handler(on_line, nullptr);
    try {
        const QTemporaryDir config;
        const corvane::test::ObsSession session(config.path().toStdString());
        corvane::register_mux_output_types();
        corvane::lab::VideoScript::register_type();
        corvane::lab::AudioScript::register_type();
        corvane::lab::print_result(play({argv + 1, argv + argc}));
    } catch (const std::exception &error) {
        fprintf(stderr, "packet_faults: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
