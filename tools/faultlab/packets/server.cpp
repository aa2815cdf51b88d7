// SPDX-License-Identifier: GPL-2.0-or-later
#include "server.hpp"

#include "testbed/ports.hpp"
#include "testbed/wait.hpp"

#include <QDir>

#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <format>
#include <fstream>
#include <stdexcept>

namespace corvane::lab {

namespace {

constexpr const char *kConfig = R"(
load_module {0};
daemon off;
master_process off;
pid {1}/pid;
error_log {1}/error.log;
events {{ worker_connections 64; }}
rtmp {{
  access_log off;
  max_message 64M;
  server {{
    listen 127.0.0.1:{2};
    application live {{ live on; record all; record_path {1}; record_suffix -%s.flv; }}
  }}
}}
)";

} // namespace

Server::Server(bool srt)
    : srt_(srt)
    , port_(test::free_port()) {
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // A row may end this process.
    process_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    start();
}

Server::~Server() {
    kill();
}

void Server::start() {
    const std::string dir = dir_.path().toStdString();
    if (srt_) {
        process_.setStandardOutputFile(dir_.filePath("received.ts"));
        process_.start("srt-live-transmit",
            {"-q", "-loglevel:fatal", QString("srt://127.0.0.1:%1?mode=listener").arg(port_),
                "file://con"});
    } else {
        std::ofstream(dir + "/conf") << std::format(kConfig, CVC_NGINX_RTMP_MODULE, dir, port_);
        process_.start(CVC_NGINX, {"-c", dir_.filePath("conf"), "-e", dir_.filePath("error.log")});
    }
    if (!test::wait_until([this] {
            return srt_ ? test::is_udp_port_bound(port_) : test::is_tcp_port_listening(port_);
        })) {
        throw std::runtime_error("the row's server did not start");
    }
}

void Server::freeze() {
    ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP);
}

void Server::thaw() {
    ::kill(static_cast<pid_t>(process_.processId()), SIGCONT);
}

void Server::kill() {
    // Its end is said to the peers by the system over TCP, by the server itself over SRT.
    thaw();
    srt_ ? process_.terminate() : process_.kill();
    process_.waitForFinished();
}

std::string Server::url() const {
    return srt_ ? std::format("srt://127.0.0.1:{}", port_)
                : std::format("rtmp://127.0.0.1:{}/live", port_);
}

std::string Server::newest() const {
    const QStringList files =
        QDir(dir_.path()).entryList({"*.flv", "*.ts"}, QDir::Files, QDir::Time);
    return files.isEmpty() ? std::string() : dir_.filePath(files.front()).toStdString();
}

uintmax_t Server::received() const {
    const std::string file = newest();
    return file.empty() ? 0 : std::filesystem::file_size(file);
}

void Server::forget() const {
    std::filesystem::resize_file(newest(), 0);
}

} // namespace corvane::lab
