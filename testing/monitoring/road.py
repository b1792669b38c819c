"""The whole road for tests: the daemon, the management agent and what they write, below a private root."""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request

SKIPPED = 77


def skip(reason):
    print(f'skipped: {reason}')
    sys.exit(SKIPPED)


def need(*programs):
    for program in programs:
        if shutil.which(program) is None:
            skip(f'{program} is not installed: tools/install-deps agents')


def eventually(holds, what, seconds=30):
    """The first true value of holds(); fails with what was waited for."""
    end = time.monotonic() + seconds
    while True:
        value = holds()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f'not within {seconds} s: {what}')
        time.sleep(0.02)


class Road:
    """rynd and rynmgmtd; ended, and its folder removed, with the object's `with`."""

    def __init__(self, programs, *options):
        programs = os.path.abspath(programs)
        self.root = tempfile.mkdtemp(prefix='rynd-')
        self.environment = dict(os.environ, CORVANE_ROOT=self.root, PATH=f'{programs}:{os.environ["PATH"]}')
        self.options = options
        self.children = []
        self.agent = self.daemon = None

    def __enter__(self):
        try:
            self.start_agent()
            self.daemon = self.spawn('rynd', 'rynd')
            self.submit('ryn.none', '--force', wait=30)
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(self, kind, *_):
        for child in reversed(self.children):
            child.terminate()
            try:
                child.wait(20)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait()
        if kind is not None:
            for name in sorted(os.listdir(self.root)):
                if name.endswith('.log'):
                    print(f'--- {name}\n{self.log(name[:-4])[-3000:]}')
        shutil.rmtree(self.root, ignore_errors=True)

    def log(self, name):
        with open(f'{self.root}/{name}.log', encoding='utf-8', errors='replace') as file:
            return file.read()

    def spawn(self, name, *command, **more):
        with open(f'{self.root}/{name}.log', 'ab') as log:
            child = subprocess.Popen(command, env=self.environment, stdout=log, stderr=log, stdin=subprocess.DEVNULL,
                                     **more)
        self.children.append(child)
        return child

    def start_agent(self):
        before = len(self.log('rynmgmtd')) if os.path.exists(f'{self.root}/rynmgmtd.log') else 0
        self.agent = self.spawn('rynmgmtd', 'rynmgmtd', '--http', '127.0.0.1:0', *self.options)

        def url():
            assert self.agent.poll() is None, f'rynmgmtd ended: {self.log("rynmgmtd")}'
            said = self.log('rynmgmtd')[before:]
            return said.split('Serving ')[1].split()[0] if 'Receiving' in said else ''
        self.url = eventually(url, 'rynmgmtd serves')

    def stop_agent(self, how=signal.SIGTERM):
        self.agent.send_signal(how)
        assert self.agent.wait(20) == (0 if how == signal.SIGTERM else -how)

    def submit(self, observation, *arguments, wait=10):
        subprocess.run(['rynctl', 'submit', '--wait', str(wait), observation, *arguments], env=self.environment,
                       check=True, capture_output=True)

    def get(self, path, as_json=True):
        try:
            with urllib.request.urlopen(self.url + path, timeout=20) as answer:
                text = answer.read().decode()
        except urllib.error.HTTPError as error:
            text = error.read().decode()
        return json.loads(text) if as_json else text


def free_port():
    import socket
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]
