# SPDX-License-Identifier: GPL-2.0-or-later
"""The real host on a screen, real servers, and what they received: shared by demo, bench and tests."""
