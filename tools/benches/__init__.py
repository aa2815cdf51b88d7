# SPDX-License-Identifier: GPL-2.0-or-later
"""The measures of `./dev bench`: a file each, with `measure(setting)`, beside what they share.

Machines are noisy: whatever is compared runs in turns, and what counts are the ratios of one round.
"""
