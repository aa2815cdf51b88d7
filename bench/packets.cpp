// SPDX-License-Identifier: GPL-2.0-or-later
// The cost of a packet in the module's outputs, the host's own and the floor, while libobs delivers
// an encoded stream in real time. An iteration is one second of the stream
// (--benchmark_min_time=5x: five); its time is the packet callback's CPU time.
#include "meter.hpp"
#include "replay.hpp"
#include "support/fake_frontend.hpp"
#include "support/local_server.hpp"
#include "support/obs_session.hpp"
#include "support/wait.hpp"

#include <QApplication>

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <format>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace corvane;
using namespace corvane::bench;
using namespace std::chrono_literals;

void require(bool condition, const char *what) {
    if (!condition) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

bool is_file(const std::string &url) {
    return url.starts_with("/");
}

// Live from its making on.
class Output {
public:
    Output(const char *type, const Stream &stream, const std::string &url) {
        const OBSDataAutoRelease settings = obs_data_create();
        obs_data_set_string(settings, "server", url.c_str());
        obs_data_set_string(settings, "key", "bench");
        obs_data_set_string(settings, "path", url.c_str());
        obs_data_set_int(settings, "fps_num", stream.fps);
        obs_data_set_int(settings, "fps_den", 1);
        output_ = obs_output_create(type, "bench", settings, nullptr);
        service_ = obs_service_create("rtmp_custom", "bench", settings, nullptr);
        obs_output_set_service(output_, service_);
        encoders_ = add_replay_encoders(output_, stream);
        meter::begin();
        const auto live = [&] {
            const meter::Reading reading = meter::read();
            return is_file(url) ? reading.packets > 0 : !reading.latencies_ms.empty();
        };
        require(obs_output_start(output_) && test::wait_until(live), "starting the output");
    }
    ~Output() {
        obs_output_force_stop(output_);
        test::wait_until([this] { return !obs_output_active(output_); });
    }

    bool is_whole() const {
        return obs_output_active(output_) && obs_output_get_frames_dropped(output_) == 0;
    }

private:
    OBSServiceAutoRelease service_;
    std::vector<OBSEncoderAutoRelease> encoders_;
    OBSOutputAutoRelease output_;
};

using CpuOfThreads = std::map<std::string, double>; // in ns

CpuOfThreads cpu_of_threads() {
    CpuOfThreads threads;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream(entry.path() / "schedstat") >> threads[entry.path().filename()];
    }
    return threads;
}

double spent_ns(const CpuOfThreads &foreign, CpuOfThreads before) {
    double spent = 0;
    for (const auto &[thread, cpu_ns] : cpu_of_threads()) {
        spent += foreign.contains(thread) ? 0 : cpu_ns - before[thread];
    }
    return spent;
}

void measure(benchmark::State &state, const char *type, const std::string &url) {
    const Stream stream{.tracks = static_cast<size_t>(state.range(0)),
        .fps = static_cast<int>(state.range(1)),
        .megabits = static_cast<int>(state.range(2))};
    test::ObsSession::reset_video(64, 36, static_cast<uint32_t>(stream.fps));
    const CpuOfThreads foreign = cpu_of_threads();
    const Output output(type, stream, url);
    std::this_thread::sleep_for(1s); // libobs delivers the first packets in a burst
    const CpuOfThreads before = cpu_of_threads();
    meter::begin();
    CALLGRIND_START_INSTRUMENTATION;
    double callback_ns = 0;
    auto time = std::chrono::steady_clock::now();
    for ([[maybe_unused]] auto _ : state) {
        std::this_thread::sleep_until(time += 1s);
        const double earlier_ns = std::exchange(callback_ns, meter::read().callback_cpu_ns);
        state.SetIterationTime((callback_ns - earlier_ns) / 1e9);
    }
    CALLGRIND_STOP_INSTRUMENTATION;
    const double own_threads_ns = spent_ns(foreign, before);
    const auto [packets, cpu_ns, _] = meter::read();
    const auto seen_at_least = [&](double share) {
        return is_file(url) ||
               static_cast<double>(meter::read().latencies_ms.size()) >= share * packets;
    };
    test::wait_until([&] { return seen_at_least(1); }, 2s);
    // Muxers hold the last packets back, and a marker that a TS packet's end splits is missed.
    require(seen_at_least(0.8), "seeing the packets leave");
    require(packets > 0 && output.is_whole(), "delivering all packets");
    state.counters = {{"tracks", static_cast<double>(stream.tracks)}, {"fps", stream.fps},
        {"megabits", stream.megabits}, {"packets", packets},
        {"callback_us", cpu_ns / packets / 1e3},
        {"path_us", (cpu_ns + own_threads_ns) / packets / 1e3}};
    if (const auto latencies_ms = meter::read().latencies_ms; !latencies_ms.empty()) {
        state.counters["p50_ms"] = latencies_ms[latencies_ms.size() / 2];
        state.counters["p99_ms"] = latencies_ms[latencies_ms.size() * 99 / 100];
    }
}

void add(const char *name, const char *type, const std::string &url, bool growing = false) {
    const auto run = [=](benchmark::State &state) {
        try {
            measure(state, type, url);
        } catch (const std::exception &error) {
            state.SkipWithError(error.what());
        }
    };
    auto *benchmark = benchmark::RegisterBenchmark(name, run);
    benchmark->UseManualTime()->Unit(benchmark::kMicrosecond);
    benchmark->ArgNames({"tracks", "fps", "megabits"})->Args({6, 30, 4});
    if (growing) {
        benchmark->Args({1, 30, 4})->Args({3, 30, 4});
        benchmark->Args({6, 60, 4})->Args({6, 120, 4});
        benchmark->Args({6, 30, 20})->Args({6, 30, 50});
    }
}

// With a canvas so small that drawing it disturbs nothing.
void load_module(const std::string &dir) {
    std::ofstream(dir + "/corvane-vertical-canvas.ini")
        << "[VerticalCanvas]\ncanvaswidth=32\ncanvasheight=64\n";
    test::FakeFrontend::get().profile_dir = dir;
    obs_module_t *module = nullptr;
    require(obs_open_module(&module, CVC_MODULE, CVC_MODULE_DATA) == MODULE_SUCCESS &&
                obs_init_module(module),
        "loading the module");
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const QApplication application(argc, argv);
    const QTemporaryDir dir;
    const test::ObsSession session(dir.path().toStdString());
    test::ObsSession::load_host_module("obs-outputs");
    test::ObsSession::load_host_module("rtmp-services");
    load_module(dir.path().toStdString());
    const test::LocalServer rtmp;
    const test::LocalServer srt(test::LocalServer::kSrt);
    add("standard RTMP", "cv_vertical_mux_rtmp", rtmp.url(), true);
    add("host RTMP", "rtmp_output", rtmp.url(), true);
    add("resilient RTMP", "cv_vertical_mux_resilient", rtmp.url());
    add("standard SRT", "cv_vertical_mux_rtmp", srt.url(), true);
    add("host SRT", "ffmpeg_mpegts_muxer", srt.url(), true);
    add("resilient SRT", "cv_vertical_mux_resilient", srt.url());
    add("floor: FLV into dev null", "flv_output", "/dev/null");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
