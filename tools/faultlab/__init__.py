# SPDX-License-Identifier: GPL-2.0-or-later
"""The fault lab: what each policy of the vertical stream does under every fault.

row.py       what a row is, and what it finds
trial.py     one run of a row: its folder, its deadline, the processes that it starts
stage.py     the host as a process of its own, told what to do and watched
receivers.py servers whose received pictures can be counted while they come in
proxies.py   the network between the host and a server, with its faults
air.py       a vertical stream on air through a proxy: the fault, what follows, the figures
promises.py  what the resilient policy never does
*_rows.py    the rows
table.py     the results in docs/, kept from run to run
"""
