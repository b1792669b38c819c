#!/usr/bin/env python3
"""Events in a real journal: the host's own, or one below a /run that only this test sees.
Usage: journal.py FOLDER-OF-THE-PROGRAMS"""
import json
import os
import subprocess
import sys
import uuid

from road import Road, eventually, need, skip

JOURNAL = '/run/systemd/journal/socket'
JOURNALD = '/lib/systemd/systemd-journald'


def records(subject):
    found = subprocess.run(['journalctl', '-o', 'json', '--all', f'RYND_SUBJECT={subject}'], capture_output=True,
                           text=True, check=False)
    return [json.loads(line) for line in found.stdout.splitlines()]


def have_journal():
    """A journal that can be read; one of our own where the host has none. What is started for that, or None."""
    need('journalctl')
    if os.path.exists(JOURNAL):
        if os.geteuid() != 0:
            skip('only root reads the journal of this machine')
        return None
    if os.geteuid() != 0 or not os.path.exists(JOURNALD):
        skip('no journal runs on this machine, and none can be started')
    if 'OWN_RUN' not in os.environ:
        os.environ['OWN_RUN'] = '1'
        os.execvp('unshare', ['unshare', '--mount', sys.executable, *sys.argv])
    if subprocess.run(['mount', '-t', 'tmpfs', 'run', '/run'], check=False).returncode != 0:
        skip('no /run of its own can be mounted')
    os.makedirs('/run/log/journal')
    journald = subprocess.Popen([JOURNALD], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    eventually(lambda: os.path.exists(JOURNAL), 'the journal runs')
    return journald


def check():
    subject = f'test-{uuid.uuid4()}'
    with Road(sys.argv[1], '--journal') as road:
        os.makedirs(f'{road.root}/run/systemd/journal')
        os.symlink(JOURNAL, f'{road.root}/run/systemd/journal/socket')
        road.submit('ryn.storage.apd.start', subject)
        road.submit('ryn.storage.apd.exit', subject)
        found = eventually(lambda: len(records(subject)) >= 2 and records(subject), 'both events are in the journal', 90)
    problem, clear = found
    assert problem['RYND_EVENT'] == 'amb.problem.storage.apd.start' and problem['PRIORITY'] == '3', problem
    assert clear['RYND_CATEGORY'] == 'clear' and clear['RYND_ARG_DEVICE'] == subject, clear
    assert len(problem['MESSAGE_ID']) == 32 and problem['SYSLOG_IDENTIFIER'] == 'rynmgmtd', problem


own = have_journal()
try:
    check()
finally:
    if own is not None:
        own.terminate()
        own.wait(20)
