"""Enough of WebDriver to drive Debian's Chromium, with the standard library alone."""
import json
import shutil
import subprocess
import tempfile
import urllib.error
import urllib.request

from road import eventually, free_port

FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
         '--disable-background-networking', '--disable-component-update', '--disable-sync', '--disable-dev-shm-usage']
KEYS = {'Tab': '\ue004', 'Enter': '\ue007', 'Escape': '\ue00c', 'Space': ' ', 'ArrowLeft': '\ue012',
        'ArrowRight': '\ue014', 'Home': '\ue011', 'End': '\ue010'}


class Browser:
    def __enter__(self):
        self.profile = tempfile.mkdtemp(prefix='chromium-')
        port = free_port()
        self.driver = subprocess.Popen(['chromedriver', f'--port={port}'], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
        self.base = f'http://127.0.0.1:{port}'
        self.session = ''
        try:
            eventually(self.is_ready, 'chromedriver serves')
            options = {'args': FLAGS + [f'--user-data-dir={self.profile}']}
            answer = self.call('POST', '/session', {'capabilities': {'alwaysMatch': {
                'goog:chromeOptions': options, 'goog:loggingPrefs': {'browser': 'ALL'}}}})
            self.session = f'/session/{answer["sessionId"]}'
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if self.session:
            try:
                self.call('DELETE', self.session)
            except (OSError, AssertionError):
                pass
        self.driver.terminate()
        self.driver.wait()
        shutil.rmtree(self.profile, ignore_errors=True)

    def is_ready(self):
        try:
            return self.call('GET', '/status')['ready']
        except OSError:
            return False

    def call(self, method, path, body=None):
        data = json.dumps(body).encode() if body is not None else None
        request = urllib.request.Request(self.base + path, method=method, data=data,
                                         headers={'Content-Type': 'application/json'})
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.loads(answer.read())['value']
        except urllib.error.HTTPError as error:
            raise AssertionError(f'{path}: {error.read().decode()[:500]}') from None

    def open(self, url):
        self.call('POST', f'{self.session}/url', {'url': url})

    def run(self, script, *arguments):
        return self.call('POST', f'{self.session}/execute/sync', {'script': script, 'args': list(arguments)})

    def developer(self, command, **parameters):
        return self.call('POST', f'{self.session}/goog/cdp/execute', {'cmd': command, 'params': parameters})

    def press(self, *keys):
        actions = []
        for key in keys:
            value = KEYS.get(key, key)
            actions += [{'type': 'keyDown', 'value': value}, {'type': 'keyUp', 'value': value}]
        self.call('POST', f'{self.session}/actions', {'actions': [{'type': 'key', 'id': 'keyboard', 'actions': actions}]})

    def complaints(self):
        """What the browser's console says of refused loads, scripts that fail and the like."""
        entries = self.call('POST', f'{self.session}/se/log', {'type': 'browser'})
        return [entry['message'] for entry in entries if entry['level'] == 'SEVERE']

    def size(self, width, height, phone=False):
        self.developer('Emulation.setDeviceMetricsOverride', width=width, height=height, deviceScaleFactor=1, mobile=phone)
