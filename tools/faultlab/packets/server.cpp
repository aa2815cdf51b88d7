// SPDX-License-Identifier: GPL-2.0-or-later
#include "server.hpp"

#include "testbed/local_sink.hpp"
#include "testbed/wait.hpp"

#include <QDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
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

bool takes_connections(int port) {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    if (probe < 0) {
        throw std::runtime_error("no socket to look for the row's server");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool takes =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(probe);
    return takes;
}

// Told by the system: who tries the port may keep the server from it.
bool is_udp_port_bound(int port) {
    std::ifstream sockets("/proc/net/udp");
    const std::string local = std::format(":{:04X} ", port);
    for (std::string line; std::getline(sockets, line);) {
        if (line.find(local) != std::string::npos) {
            return true;
        }
    }
    return false;
}

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
    if (!test::wait_until(
            [this] { return srt_ ? is_udp_port_bound(port_) : takes_connections(port_); })) {
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
