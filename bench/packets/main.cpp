// SPDX-License-Identifier: GPL-2.0-or-later
// usage: packet_bench TARGET URL KEY --recording FILE --board FILE [--NAME VALUE…]
// Streams recorded packets through one output of a real libobs and prints what that took as its
// last line, in JSON.
#include "board.hpp"
#include "meter.hpp"
#include "recording.hpp"
#include "replay.hpp"
#include "result.hpp"
#include "target.hpp"
#include "testbed/obs_session.hpp"
#include "testbed/wait.hpp"
#include "threads.hpp"

#include <QApplication>
#include <QCommandLineParser>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <util/base.h>

#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

using namespace corvane;
using namespace corvane::bench;
using namespace std::chrono_literals;

// With room for those that libobs gives at once after a start.
constexpr int kSoundFramesPerSecond = 60;

// A log line costs what it does in the host: it is put together and written to a file.
class LogFile {
public:
    explicit LogFile(const QString &path)
        : file_(fopen(path.toLocal8Bit().constData(), "we")) {
        base_set_log_handler(
            [](int, const char *format, va_list arguments, void *log) {
                auto *self = static_cast<LogFile *>(log);
                const std::scoped_lock lock(self->mutex_);
                vfprintf(self->file_, format, arguments);
                fputc('\n', self->file_);
                fflush(self->file_);
            },
            this);
    }
    ~LogFile() {
        base_set_log_handler([](int, const char *, va_list, void *) {}, nullptr);
        fclose(file_);
    }
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

private:
    std::mutex mutex_; // guards the file
    FILE *file_;
};

struct Options {
    QString target, url, key, recording, board, log;
    Shape shape;
    double speed = 1;
    double warm_up = 2;
    double seconds = 10;
    bool through_libobs = false;
    bool marks = false;

    explicit Options(const QApplication &application) {
        QCommandLineParser parser;
        parser.addPositionalArgument("target", "standard, resilient, host-rtmp, host-srt, floor");
        parser.addPositionalArgument("url", "the server's address");
        parser.addPositionalArgument("key", "the stream key");
        parser.addOptions({{"recording", "the recorded packets", "file"},
            {"board", "what the sink fills", "file"},
            {"log", "where log lines go", "file", "log.txt"}, {"tracks", "of sound", "number", "6"},
            {"fps", "frames a second", "number", "30"},
            {"megabits", "of video a second; 0 as recorded", "number", "0"},
            {"speed", "in times of live", "factor", "1"},
            {"warm-up", "seconds of the stream before the measured ones", "number", "2"},
            {"seconds", "of the stream that are measured", "number", "10"},
            {"through-libobs", "let libobs's own clock and threads deliver, at speed 1"},
            {"marks", "put a failing write around each callback"}});
        parser.process(application);
        const QStringList words = parser.positionalArguments();
        if (words.size() != 3) {
            parser.showHelp(EXIT_FAILURE);
        }
        target = words[0];
        url = words[1];
        key = words[2];
        recording = parser.value("recording");
        board = parser.value("board");
        log = parser.value("log");
        shape = {.tracks = parser.value("tracks").toInt(),
            .fps = parser.value("fps").toInt(),
            .megabits = parser.value("megabits").toDouble()};
        speed = parser.value("speed").toDouble();
        warm_up = parser.value("warm-up").toDouble();
        seconds = parser.value("seconds").toDouble();
        through_libobs = parser.isSet("through-libobs");
        marks = parser.isSet("marks");
    }
};

// Lets the stream run for so many of its seconds.
class Stream {
public:
    Stream(const Options &options, const Recording &recording, Target &target,
        const MappedBoard &board)
        : options_(options)
        , target_(target)
        , board_(board)
        , feeder_(recording, target.encoders(), options.shape, options.speed) {}

    // Returns for how long a packet was handed over too late, at most, in ms.
    double run(double seconds) {
        double late_ms = 0;
        if (options_.through_libobs) {
            const auto end = now_ns() + static_cast<int64_t>(seconds * 1e9);
            test::wait_until([end] { return now_ns() >= end; }, std::chrono::hours(1));
        } else {
            late_ms = feeder_.feed(seconds);
            drain();
        }
        target_.check();
        return late_ms;
    }

private:
    // Waits until nothing more comes in at the sink.
    void drain() const {
        uint64_t last = 0;
        auto since = std::chrono::steady_clock::now();
        test::wait_until([&] {
            const auto now = std::chrono::steady_clock::now();
            if (board_->bytes != last) {
                last = board_->bytes;
                since = now;
            }
            return last > 0 && now - since > 40ms;
        });
    }

    const Options &options_;
    Target &target_;
    const MappedBoard &board_;
    Feeder feeder_;
};

QJsonObject measure(const Options &options, const Recording &recording) {
    const MappedBoard board(options.board.toStdString());
    // What measuring itself takes is there before memory is looked at.
    Meter::get().reserve(static_cast<size_t>(
        options.seconds * (options.shape.fps + (options.shape.tracks * kSoundFramesPerSecond))));
    const NewThreads writers;
    forget_memory_peak();
    const int memory_before_kb = memory_kb("VmRSS:");

    Target target(options.target.toStdString(), options.url.toStdString(),
        options.key.toStdString(), options.shape);
    Stream stream(options, recording, target, board);
    target.start();
    stream.run(0.1); // opens the connection, where that is the first packet's work
    stream.run(options.warm_up);

    const auto use_before = writers.use();
    Meter::get().begin();
    CALLGRIND_START_INSTRUMENTATION;
    (void)!write(-1, "{", 1);
    const double late_ms = stream.run(options.seconds);
    (void)!write(-1, "}", 1);
    CALLGRIND_STOP_INSTRUMENTATION;
    if (RUNNING_ON_VALGRIND) {
        VALGRIND_MONITOR_COMMAND("v.info scheduler"); // its own numbers of the threads
    }
    const auto samples = Meter::get().end();
    const auto use = use_between(use_before, writers.use());
    const int peak_kb = memory_kb("VmHWM:");
    if (options.through_libobs) {
        // What was given last is still on its way.
        test::wait_until([&] { return board->found >= Meter::get().passed(); }, 500ms);
    }

    QJsonObject result = figures(samples, use, board);
    result["frames_dropped"] = target.frames_dropped();
    result["late_ms"] = late_ms;
    result["memory_growth_kb"] = peak_kb - memory_before_kb;
    return result;
}

} // namespace

int main(int argc, char **argv) {
    const QApplication application(argc, argv);
    const Options options(application);
    try {
        const LogFile log(options.log);
        const QTemporaryDir config;
        const Recording recording(options.recording.toStdString(), options.shape);
        Meter::get().watch(Target::type_of(options.target.toStdString()), options.marks);
        const test::ObsSession session(config.path().toStdString());
        test::ObsSession::reset_video(
            test::kHostWidth, test::kHostHeight, static_cast<uint32_t>(options.shape.fps));
        Target::register_types();
        ReplayEncoders::register_types(recording, options.through_libobs);
        const QByteArray line =
            QJsonDocument(measure(options, recording)).toJson(QJsonDocument::Compact);
        puts(line.constData());
    } catch (const std::exception &error) {
        fprintf(stderr, "packet_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
