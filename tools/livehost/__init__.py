# SPDX-License-Identifier: GPL-2.0-or-later
"""The real host on a screen of its own, real servers, and readings of what they received.

Shared by the demo and by the tests that drive the host. Nothing in here sleeps blindly:
every wait has a condition and a deadline.
"""
