# SPDX-License-Identifier: GPL-2.0-or-later
"""Odd packets and failing encoders, and streams that are ended at odd moments. The output type runs
in a real libobs, with encoders that do as they are told, in the program packet_faults."""

from collections.abc import Iterator

from .row import RESILIENT, STANDARD, Expectation, Result, Row, expect, program

_TIMES = 125  # for each of eight kinds of moment: a thousand in all
_ENCODE_ERROR, _ERROR = -8, -4


def _either(*expectations: Expectation) -> Expectation:
    def check(result: Result) -> list[str]:
        wrong = [expectation(result) for expectation in expectations]
        return [] if [] in wrong else wrong[0]
    return check


_GOES_ON = expect("streams on", stops=[0])
_HALTS = expect("nothing arrives", stops=[0])
_ENDS = expect("ends")
_HANGS = expect("hangs")
_ABORTS = expect("process ended: SIGABRT")

# name, what happens, by what, standard, resilient, over SRT too
_PACKETS: list[tuple[str, str, str, Expectation, Expectation, bool]] = [
    ("encoder-fails", "video encoder fails mid-stream", "the encoder returns an error",
     expect("stops", stops=[0, _ENCODE_ERROR]), expect("stops", stops=[_ENCODE_ERROR]), True),
    ("null-packet", "null packet", "handed to the output", expect("stops", stops=[_ENCODE_ERROR]),
     expect("stops", stops=[_ENCODE_ERROR]), False),
    ("silent-track", "one audio track goes silent mid-stream", "its packets are withheld", _HALTS, _GOES_ON, True),
    ("silent-from-start", "one audio track is silent from the start", "its packets are withheld",
     _HALTS, _GOES_ON, False),
    ("late-headers", "audio headers come late", "after 60 packets of the encoder", _GOES_ON, _GOES_ON, False),
    ("no-headers", "audio headers never come", "the encoders give none", _HALTS,
     expect("stops", stops=[_ERROR], message="The encoders deliver nothing that could be sent"), False),
    ("track-gap", "tracks with gaps", "encoders in the slots 0, 2 and 5", _GOES_ON, _GOES_ON, False),
    ("no-times", "packets without times", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("times-back", "times jump back by 10 s", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("times-equal", "all times are equal", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("times-huge", "times beyond 2^33 ticks", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("empty-packets", "empty video packets", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("four-bytes", "video packets of 4 bytes", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("short-start-code", "start codes of 3 bytes", "all from the fault on", _GOES_ON, _GOES_ON, True),
    ("20-mb", "a video packet of 20 MB", "one or two", _GOES_ON, _GOES_ON, True),
]

# Over RTMP FFmpeg refuses a packet of that size with its first byte sent, after which the server makes no
# sense of the rest; over both, sound waits for pictures.
_STANDARD_ELSE = {("20-mb", "rtmp"): _HALTS, ("empty-packets", "rtmp"): _HALTS, ("empty-packets", "srt"): _HALTS}

# When SRT gives a stalled peer up, the standard type's write thread ends the process, or it and a stop wait
# for each other: which of the two depends on the moment.
# moment, by what, standard over RTMP, standard over SRT
_MOMENTS = [
    ("connecting", "the server is frozen", _HANGS, _ENDS),
    ("stalled", "the server is frozen mid-stream", _HANGS, _either(_ENDS, _ABORTS, _HANGS)),
    ("reconnecting", "the server ends mid-stream", _ENDS, _ABORTS),
    ("holding", "no audio header comes", _ENDS, _ENDS),
]


def _packet_rows() -> Iterator[Row]:
    for name, fault, how, standard, resilient, srt_too in _PACKETS:
        for transport in ("rtmp", "srt")[:1 + srt_too]:
            yield Row(f"{name}-{transport}", f"{fault} ({transport.upper()})", how,
                      program("packet_faults", "packet", name, transport),
                      {STANDARD: _STANDARD_ELSE.get((name, transport), standard), RESILIENT: resilient})


def _life_rows() -> Iterator[Row]:
    for deed, times in (("stop", _TIMES), ("destroy", _TIMES // 5)):
        for moment, how, *standard in _MOMENTS:
            for transport, expected in zip(("rtmp", "srt"), standard):
                yield Row(f"{deed}-{moment}-{transport}", f"{deed} while {moment} ({transport.upper()})",
                          f"{how}; {times} times, at random within 0.6 s",
                          program("packet_faults", deed, moment, transport, str(times)),
                          {STANDARD: expected, RESILIENT: _ENDS}, seconds=900)


ROWS = [
    *_packet_rows(),
    *_life_rows(),
    Row("day", "24 h of packets", "one after another, as fast as they are received",
        program("packet_faults", "day", "24"), {STANDARD: expect("streams on"), RESILIENT: expect("streams on")},
        seconds=900),
]
