# SPDX-License-Identifier: GPL-2.0-or-later
"""What either output type does when the network or the server fails, while the main stream runs on."""

import os
import re
import socket
import subprocess
import threading
import time
from collections.abc import Callable
from contextlib import ExitStack, contextmanager
from dataclasses import dataclass, replace
from functools import partial
from pathlib import Path

import pytest
from host_fixture import FPS, start_main, stop, vertical_frames
from livehost.actions import UserActions
from livehost.checks import time_problems
from livehost.host import HostError
from livehost.received import Received
from livehost.scene import HEIGHT, WIDTH, still_source
from livehost.servers import RtmpServer, SrtListener, free_port
from livehost.waiting import wait_until
from PIL import Image
from proxies import LOOPBACK, TcpProxy, UdpProxy

KEY, WRONG_PASSPHRASE = "secretkey", "wrongpassphrase"
BOX_TITLE = "Vertical Canvas \u00e2\u20ac\u201d Stream Error"
REJECTED = "Stream rejected — check server URL and stream key"
LONGEST_PAUSE_SECONDS = 1.0
MOST_GROWTH_MIB = 64
MINUTES = 60


class Receiver:
    """A server behind a proxy."""

    def __init__(self, url, server=None, proxy=None):
        self.url, self.server, self.proxy = url, server, proxy

    def size(self):
        return sum(path.stat().st_size for path in self.server.recordings())

    def frames(self):
        return sum(len(video.packets) for path in self.server.recordings() for video in Received(path).videos)

    def mend(self):
        self.proxy.mend()
        self.server.start()


def rtmp(stack, folder, path="live", silent=False):
    server = stack.enter_context(RtmpServer(folder))
    proxy = TcpProxy(server.port)
    if silent:  # takes the connection and answers nothing
        proxy.cut()
    return Receiver(f"rtmp://{LOOPBACK}:{proxy.port}/{path}", server, proxy)


def srt(stack, folder, query="", options="", delay_seconds=0.0):
    server = stack.enter_context(SrtListener(folder, options, reconnect=True))
    proxy = UdpProxy(server.port, delay_seconds)
    return Receiver(f"srt://{LOOPBACK}:{proxy.port}{query}", server, proxy)


def nobody(url):
    return lambda *_: Receiver(url)


def black_hole(stack, _):
    """The first packet of every connection is lost, since the queue of connections is full."""
    listener = stack.enter_context(socket.create_server((LOOPBACK, 0), backlog=0))
    for _ in range(4):
        filler = stack.enter_context(socket.socket())
        filler.setblocking(False)
        filler.connect_ex(listener.getsockname())
    return Receiver(f"rtmp://{LOOPBACK}:{listener.getsockname()[1]}/live")


class VerticalStream:
    """The vertical stream of a host whose main stream runs on from fault to fault."""

    def __init__(self, setup, host, resilient):
        self.setup, self.host, self.user, self.resilient = setup, host, UserActions(host), resilient

    def start(self, url):
        if self.host.vertical_active():  # after a failed test
            self.stop()
        self.user.open_settings()
        self.user.type(url or self.setup.rtmp.url, "urlEdit")
        self.user.save_settings()
        wait_until(lambda: self.user.enabled("startButton")[0], 20, "start button enabled")
        self.begin_measuring()
        self.user.click("startButton")
        wait_until(lambda: not self.user.enabled("startButton")[0] or self.boxes(), 20, "start")

    def begin_measuring(self):
        self.host.longest_answer_seconds = 0
        self.log_begin = len(self.host.log())
        self.first_mib, self.first_wait = self.memory_mib(), self.processor_wait_seconds()
        self.most_mib = self.longest_main_pause = self.stop_seconds = 0

    def boxes(self):
        return self.user.boxes(BOX_TITLE)

    def log(self):
        return self.host.log()[self.log_begin:]

    def memory_mib(self):
        return int(Path(f"/proc/{self.host.process.pid}/statm").read_text().split()[1]) // 256

    def processor_wait_seconds(self):
        """How long the UI and the graphics thread, which wait for each other, were ready to run but did not."""
        process = Path(f"/proc/{self.host.process.pid}")
        threads = [process, *(thread for thread in process.glob("task/*")
                              if (thread / "comm").read_text().startswith("libobs: graph"))]
        return sum(int((thread / "schedstat").read_text().split()[1]) for thread in threads) / 1e9

    def watch(self, seconds, done=None, what=""):
        """Watches main stream and memory for so long, or, where something is waited for, until it is done."""
        begin = moved = time.monotonic()
        main_frames = 0

        def over():
            nonlocal main_frames, moved
            now, frames = time.monotonic(), self.host.request("GetStreamStatus")["outputTotalFrames"]
            self.longest_main_pause = max(self.longest_main_pause, now - moved)
            if frames != main_frames:
                main_frames, moved = frames, now
            self.most_mib = max(self.most_mib, self.memory_mib())
            return done() if done else now > begin + seconds
        wait_until(over, seconds + 20 * (not done), what)

    def watch_flow(self, receiver):
        """Until data has been arriving for two seconds without a gap; returns the bytes per second."""
        begin = last = time.monotonic(), receiver.size()

        def flows():
            nonlocal begin, last
            now = time.monotonic(), receiver.size()
            if now[1] > last[1]:
                begin, last = begin if now[0] - last[0] < 0.7 else now, now
            return last[0] - begin[0] > 2
        self.watch(20, flows, "data at the server")
        return (last[1] - begin[1]) / (last[0] - begin[0])

    def stop(self):
        begin = time.monotonic()
        self.user.click("stopButton")
        wait_until(lambda: not self.host.vertical_active(), 20, "stop")
        self.stop_seconds = time.monotonic() - begin

    def check_promises(self):
        """What no fault may do with the resilient type, and in part with either."""
        assert self.host.main_active() and not self.boxes()
        if self.resilient:
            pauses = [self.host.longest_answer_seconds, self.longest_main_pause, self.stop_seconds]
            assert max(pauses) < LONGEST_PAUSE_SECONDS + self.processor_wait_seconds() - self.first_wait, pauses
            assert self.most_mib - self.first_mib < MOST_GROWTH_MIB
            assert not re.search(f"{KEY}|{WRONG_PASSPHRASE}", self.log())


def comes_back(stream, receiver, seconds):
    stream.watch(seconds)
    receiver.mend()
    stream.watch_flow(receiver)
    stream.user.reads("statusLabel", "Streaming")
    stream.stop()
    if receiver.url.startswith("rtmp"):
        receiver.server.wait_idle()
        assert list(time_problems(Received(receiver.server.recordings()[-1]))) == []


def keeps_pace(stream, receiver, minutes):
    """No clock drifts, no memory grows, and the host does not stumble in the long run."""
    def newest_seconds(track):
        times = subprocess.run(
            ["ffprobe", "-v", "error", "-select_streams", track, "-show_entries", "packet=pts_time", "-of", "csv=p=0",
             str(receiver.server.recordings()[-1])], capture_output=True, text=True, check=True).stdout
        return float(times.split()[-1])

    def clocks():
        return [newest_seconds(track) - time.monotonic() for track in ("v:0", "a:0", "a:5")]

    stream.watch(60)
    before, memory, frames = clocks(), stream.memory_mib(), stream.host.frames()
    for _ in range(minutes):
        stream.begin_measuring()
        stream.watch(60)
        stream.check_promises()
    assert clocks() == pytest.approx(before, abs=0.2)
    assert stream.memory_mib() - memory < 50
    frames = stream.host.frames() - frames
    assert frames.lagged < 0.05 * frames.rendered
    sent, dropped = vertical_frames(stream.host)
    stream.stop()
    assert (receiver.frames(), dropped) == (sent, 0)


def goes_unnoticed(stream, receiver, seconds):
    stream.watch(20, lambda: "first TS keyframe written" in stream.log(), "first frame")
    begin = len(stream.log())
    stream.watch(seconds)
    receiver.server.wait_idle()
    receiver.mend()
    size = receiver.size()
    stream.watch(4)
    assert receiver.size() == size
    assert "[corvane-obs-vertical]" not in stream.log()[begin:]
    stream.user.reads("statusLabel", "Streaming")
    stream.stop()


def aborts(stream, receiver, seconds):
    """The first write that fails ends the process."""
    stream.host.process.wait(20)


def hangs(stream, receiver, seconds):
    """Who stops the stream waits for the server."""
    wait_until(lambda: receiver.proxy.callers, 20, "connection")
    threading.Timer(3, receiver.mend).start()
    stream.stop()
    assert stream.host.longest_answer_seconds > 2.5


def loses_at_most(share, stream, receiver, seconds):
    stream.watch(seconds)
    sent, _ = vertical_frames(stream.host)
    stream.stop()
    assert receiver.frames() >= (1 - share) * sent


def falls_behind(stream, receiver, seconds):
    """The resilient type drops what is more than 5 s late; the standard one keeps everything."""
    def behind_seconds():
        sent, dropped = vertical_frames(stream.host)
        return (sent - dropped - receiver.frames()) / FPS
    stream.watch(seconds)
    assert behind_seconds() < 8 if stream.resilient else behind_seconds() > seconds / 4
    assert stream.resilient == (vertical_frames(stream.host)[1] > 0)
    receiver.mend()
    stream.watch(30, lambda: behind_seconds() < 1, "all received")
    stream.stop()


def stops(stream, receiver, seconds):
    stream.watch(20, stream.boxes, "message box")
    wait_until(lambda: any(window["windowTitle"] == BOX_TITLE and window["isActiveWindow"]
                           for window in stream.user.windows()), 10, "message box active")
    text, _, reason = stream.user.box(BOX_TITLE).partition("\n\n")
    assert text == REJECTED and bool(reason) == stream.resilient
    stream.user.reads("statusLabel", "Stopped")
    assert not stream.host.vertical_active()


def keeps_trying(stream, receiver, seconds):
    """The server closes after it has taken all headers, as if the connection were lost."""
    def advises():
        label = stream.user.look("statusLabel")
        return label["text"].startswith("Reconnecting (") and "check server URL and stream key" in label["toolTip"]
    stream.watch(20, advises, "advice in the dock")
    stream.stop()


@dataclass(frozen=True)
class Fault:
    name: str
    server: Callable[[ExitStack, Path], Receiver]
    begin: Callable[[Receiver], object] | None  # once the stream runs; None: the server is the fault
    seconds: float
    standard: Callable[[VerticalStream, Receiver, float], None] | None
    resilient: Callable[[VerticalStream, Receiver, float], None]
    long: bool = True


# On a line without delay SRT would resend everything in time.
distant = partial(srt, delay_seconds=0.02)
locked = partial(srt, query=f"?passphrase={WRONG_PASSPHRASE}&pbkeylen=16",
                 options="&passphrase=rightpassphrase&pbkeylen=16")
no_rtmp = nobody(f"rtmp://{LOOPBACK}:{free_port()}/live")
no_srt = nobody(f"srt://{LOOPBACK}:{free_port(socket.SOCK_DGRAM)}")
no_host = nobody("rtmp://nowhere.invalid/live")
busy = nobody(None)  # the main stream's server, where that stream has the key
few_lost, half_lost = partial(loses_at_most, 0.03), partial(loses_at_most, 0.5)
FAULTS = [
    Fault("closed", rtmp, lambda end: end.proxy.close(), 0, goes_unnoticed, comes_back),
    Fault("reset", rtmp, lambda end: end.proxy.close(reset=True), 0, goes_unnoticed, comes_back, long=False),
    Fault("killed", rtmp, lambda end: end.server.kill(), 10, goes_unnoticed, comes_back),
    Fault("stalled", rtmp, lambda end: end.proxy.cut(), 30, comes_back, comes_back),
    Fault("slow", rtmp, lambda end: end.proxy.slow_down(0.6 * end.bytes_per_second), 60, falls_behind, falls_behind),
    Fault("silent", partial(rtmp, silent=True), None, 0, hangs, stops),
    Fault("black-hole", black_hole, None, 0, stops, stops),
    Fault("refused", no_rtmp, None, 0, stops, stops, long=False),
    Fault("unknown-host", no_host, None, 0, stops, stops, long=False),
    Fault("unknown-app", partial(rtmp, path="other"), None, 0, stops, stops, long=False),
    Fault("denied", partial(rtmp, path="deny"), None, 0, goes_unnoticed, keeps_trying, long=False),
    Fault("busy", busy, None, 0, stops, stops),
    Fault("srt-killed", srt, lambda end: end.server.kill(), 6, aborts, comes_back, long=False),
    Fault("srt-closed", srt, lambda end: end.server.stop(), 6, aborts, comes_back),
    Fault("srt-cut", srt, lambda end: end.proxy.cut(), 20, aborts, comes_back),
    Fault("srt-loss-5", distant, lambda end: end.proxy.cut(0.05), 20, few_lost, few_lost),
    Fault("srt-loss-30", distant, lambda end: end.proxy.cut(0.3), 20, half_lost, half_lost),
    Fault("srt-passphrase", locked, None, 0, stops, stops),
    Fault("srt-nobody", no_srt, None, 0, stops, stops, long=False),
    Fault("an-hour", rtmp, lambda _: None, MINUTES, None, keeps_pace),
]


def cases(*policies, aborting=False):
    return [pytest.param(policy, fault, id=f"{policy}-{fault.name}", marks=[pytest.mark.long] if fault.long else [])
            for policy in policies for fault in FAULTS
            if (reaction := getattr(fault, policy)) and aborting == (reaction is aborts)]


@contextmanager
def live(setup, policy):
    setup.main_key = KEY + setup.main_key
    setup.add_profile("P", policy == "resilient", (640, 360), rtmpurl="", streamkey=setup.main_key,
                      autostartwithmain=False, videobitrate=1500, encoderpreset="ultrafast")
    noise = Image.frombytes("RGB", (160, 90), os.urandom(160 * 90 * 3)).resize((WIDTH, HEIGHT))
    scroll = {"name": "scroll", "id": "scroll_filter", "settings": {"speed_x": 200, "speed_y": 100}}
    source = replace(still_source(setup.folder.root / "noise.png", "noise", noise), filters=[scroll])
    setup.add_scenes({"Main": [source]}, {"One": "Main"})
    with setup.host() as host:
        start_main(host)
        yield VerticalStream(setup, host, policy == "resilient")
        stop(host)


def play(stream, fault, folder):
    with ExitStack() as stack:
        receiver = fault.server(stack, folder)
        stream.start(receiver.url)
        if fault.begin:
            receiver.bytes_per_second = stream.watch_flow(receiver)
            fault.begin(receiver)
        (fault.resilient if stream.resilient else fault.standard)(stream, receiver, fault.seconds)


@pytest.mark.parametrize(("policy", "fault"), cases("standard", aborting=True))
def test_lost_srt_connection_ends_the_process(new_setup, policy, fault, tmp_path):
    """A standard type that reports, or survives, what its users know as its end."""
    with pytest.raises(HostError, match="status -6"), live(new_setup(), policy) as stream:
        play(stream, fault, tmp_path)


@pytest.fixture(scope="module")
def stream(request, new_setup):
    with live(new_setup(), request.param) as stream:
        yield stream


@pytest.mark.parametrize(("stream", "fault"), cases("standard", "resilient"), indirect=["stream"], scope="module")
def test_spares_the_main_stream(stream, fault, tmp_path):
    """A stream that reacts in another way than its type is to, or that disturbs the host by it."""
    play(stream, fault, tmp_path)
    stream.check_promises()
