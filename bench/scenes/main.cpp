// SPDX-License-Identifier: GPL-2.0-or-later
// usage: scene_bench SCENES SECONDS LOG AUDIO
// Each operation on that many scenes, for so many seconds each; the host's log goes to the file, a
// write for each line as the host has it, or nowhere with "-"; with AUDIO 1 the canvas marks the
// active scene's sound. The last line is the result.
#include "last_line_reporter.hpp"
#include "mux/output_type.hpp"
#include "operations.hpp"
#include "scene_rig.hpp"
#include "testbed/obs_session.hpp"

#include <util/base.h>

#include <QApplication>
#include <QJsonDocument>

#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

namespace {

using namespace corvane;

void write_line(int, const char *format, va_list arguments, void *file) {
    char line[4096];
    vsnprintf(line, sizeof(line), format, arguments);
    auto *log = static_cast<FILE *>(file);
    fprintf(log, "%s\n", line);
    fflush(log);
}

void drop_line(int, const char *, va_list, void *) {}

QJsonObject measure(int scenes, double seconds, bool active_audio) {
    bench::SceneRig rig(scenes, active_audio);
    bench::register_operations(rig, seconds);
    bench::LastLineReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return {{"scenes", scenes}, {"operations", reporter.operations()},
        {"scene_bytes", rig.scene_bytes}, {"line_bytes", rig.line_bytes}};
}

} // namespace

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    if (argc != 5) {
        fprintf(stderr, "usage: scene_bench SCENES SECONDS LOG AUDIO\n");
        return EXIT_FAILURE;
    }
    const std::unique_ptr<FILE, int (*)(FILE *)> log(
        std::string(argv[3]) == "-" ? nullptr : fopen(argv[3], "w"), fclose);
    base_set_log_handler(log ? write_line : drop_line, log.get());
    try {
        const QTemporaryDir config;
        const test::ObsSession session(config.path().toStdString());
        register_mux_output_types();
        const QJsonObject result =
            measure(std::stoi(argv[1]), std::stod(argv[2]), std::stoi(argv[4]) != 0);
        puts(QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    } catch (const std::exception &error) {
        fprintf(stderr, "scene_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
