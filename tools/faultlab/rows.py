# SPDX-License-Identifier: GPL-2.0-or-later
"""All rows, in the order of the table."""

from . import hour_row, life_rows, packet_rows, refusal_rows, rtmp_rows, srt_rows

ROWS = [*rtmp_rows.ROWS, *refusal_rows.ROWS, *srt_rows.ROWS, *life_rows.ROWS, *packet_rows.ROWS, *hour_row.ROWS]
