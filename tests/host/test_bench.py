# SPDX-License-Identifier: GPL-2.0-or-later
"""The measures of the bench, as short as can be: whether they still measure, not what."""

import os
from pathlib import Path

import pytest
from benches import canvas, counted, report, scenes, start
from benches.packet_runs import ALL, FLOOR, OURS_RTMP, PacketRuns
from benches.report import Table
from benches.rounds import Spread
from benches.setting import Setting
from livehost.screen import VirtualScreen
from livehost.servers import RtmpServer

OPERATIONS = {"create", "rename", "remove", "assign", "activate", "list", "save_scene_list", "restore_scene_list",
              "reapply_scene_sources", "dock refresh", "dock refresh, painted"}


@pytest.fixture
def setting(tmp_path):
    with VirtualScreen() as screen:
        yield Setting(1, True, tmp_path, Path(os.environ["CVC_MODULE"]).parents[1], screen)


def whole_tables(results, folder):
    """By title. All that was measured is there, and can be printed and drawn."""
    report.keep("measure", results, folder)
    assert all((folder / f"{plot.name}.png").stat().st_size for plot in results if not isinstance(plot, Table))
    return {table.title: {row[0]: row[1:] for row in table.rows} for table in results if isinstance(table, Table)}


def test_scenes(setting, tmp_path):
    """An operation that is no longer measured, at one of the sizes."""
    tables = whole_tables(scenes.measure(setting), tmp_path)
    times = tables["Scene operations: µs"]
    assert times.keys() == OPERATIONS
    assert all(cell.low > 0 for row in times.values() for cell in row)
    assert all(len(row) == len(scenes.QUICK_SIZES) for row in times.values())


def test_start(setting, tmp_path):
    """A fallback that takes another way than the outcome's name says, or a stream that nobody sees arrive."""
    tables = whole_tables(start.measure(setting), tmp_path)
    assert [row[0] for row in tables["Start: against x264 alone"].values()] == [1, 1, 3, 5, 6, 6, 6, 7]
    *outcomes, none = tables["Start: ms from the call"].values()
    assert all(returns.low > 0 and 0 < byte.low < let_in.low for returns, byte, let_in in outcomes)
    assert isinstance(none[0], Spread) and none[1:] == [None, None]


def test_canvas(setting, tmp_path):
    """A second host that streams something else than the module would, or figures that are missing."""
    with RtmpServer(tmp_path / "rtmp") as rtmp:
        stage = canvas.Stage(setting, rtmp)
        figures = {who: canvas.run_once(stage, canvas.Candidate(who, canvas.TALLS[0]), 0, 1)
                   for who in (canvas.MODULE, canvas.TWO_HOSTS)}
    runs = {str(candidate): [figures.get(candidate.who, figures[canvas.MODULE])] for candidate in canvas.CANDIDATES}
    tables = whole_tables(canvas.tables(runs), tmp_path)
    for who, tracks in ((canvas.MODULE, 6), (canvas.TWO_HOSTS, 1)):
        size, rate, kbps, sounds = tables["Second canvas: streams as received"][f"vertical: {who}, {canvas.TALLS[0]}"]
        assert (size, sounds.low) == ("540x960", tracks)
        assert rate.low > 0 and kbps.low > 0


def test_packets(setting):
    """An output whose packets get lost on the way, or a counter that has stopped counting."""
    with PacketRuns(setting) as runs:
        for candidate in ALL:
            figures = runs.run(candidate, seconds=1, warm_up=0.2, speed=2, tracks=2)
            assert (figures["packets"], figures["video_packets"]) == (124, 30)
            assert 0 < figures["latency_us"]["p50"] <= figures["latency_us"]["max"]
            assert figures["callback_cpu_us"] > 0 and figures["writer_cpu_us"] > 0
        live = runs.run(OURS_RTMP, seconds=1, warm_up=0.2, through_libobs=True)
        assert live["callback_wall_us"]["p999"] >= live["callback_wall_us"]["p50"] > 0
        small, large = (runs.run(FLOOR, seconds=1, warm_up=0.2, megabits=rate)["bytes"] for rate in (1, 8))
        assert large > 3 * small
        counts = counted.allocations_and_copies(setting, runs, FLOOR, seconds=1, warm_up=0.2)
        assert counts["copies"].callback == 1
        assert counted.system_calls(setting, runs, FLOOR, seconds=0.5, warm_up=0.2).writer >= 1
