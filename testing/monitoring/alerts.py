#!/usr/bin/env python3
"""Debian's Prometheus and Alertmanager with the daemon and the agent in front of them, all on ports of the loopback.
Usage: alerts.py FOLDER-OF-THE-PROGRAMS"""
import http.server
import json
import os
import subprocess
import sys
import threading
import urllib.request

from road import Road, eventually, free_port, need


def get(url):
    try:
        with urllib.request.urlopen(url, timeout=10) as answer:
            return json.loads(answer.read())
    except (OSError, ValueError):
        return None


class Receiver(http.server.BaseHTTPRequestHandler):
    """Where Alertmanager sends its notifications."""
    notified = []

    def do_POST(self):
        self.notified += json.loads(self.rfile.read(int(self.headers['Content-Length'])))['alerts']
        self.send_response(200)
        self.end_headers()

    def log_message(self, *_):
        pass

    @classmethod
    def told(cls, subject, status):
        return [alert for alert in cls.notified if (alert['labels'].get('subject'), alert['status']) == (subject, status)]


class Alertmanager:
    def __init__(self, road, port):
        self.road, self.port = road, port
        self.config = f'{road.root}/alertmanager.yml'
        server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Receiver)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        with open(self.config, 'w', encoding='utf-8') as file:
            json.dump({'route': {'receiver': 'test', 'group_by': ['host'], 'group_wait': '300ms', 'group_interval': '1s',
                                 'repeat_interval': '4h'},
                       'receivers': [{'name': 'test', 'webhook_configs': [
                           {'url': f'http://127.0.0.1:{server.server_port}/'}]}]}, file)
        self.child = None

    def start(self, folder):
        self.child = self.road.spawn(
            'alertmanager', 'prometheus-alertmanager', f'--config.file={self.config}',
            f'--storage.path={self.road.root}/{folder}', f'--web.listen-address=127.0.0.1:{self.port}',
            '--cluster.listen-address=')
        eventually(lambda: self.alerts() is not None, 'Alertmanager serves')

    def stop(self):
        self.child.terminate()
        self.child.wait(20)

    def get(self, path):
        return get(f'http://127.0.0.1:{self.port}/api/v2/{path}')

    def alerts(self):
        """By subject: only what fires is listed."""
        found = self.get('alerts')
        return found if found is None else {alert['labels'].get('subject'): alert for alert in found}

    def shows(self, *subjects):
        eventually(lambda: set(self.alerts() or []) == set(subjects), f'{subjects} and no other fires', 60)


def fires_and_resolves(road, manager):
    road.submit('ryn.storage.apd.start', 'naa.1')
    road.submit('ryn.storage.apd.start', 'naa.2')
    manager.shows('naa.1', 'naa.2')
    alert = manager.alerts()['naa.1']
    assert alert['labels']['alertname'] == 'amb.problem.storage.apd.start', alert
    assert alert['labels']['severity'] == 'error' and alert['labels']['host'], alert
    assert 'naa.1' in alert['annotations']['summary'] and alert['annotations']['description'], alert
    groups = manager.get('alerts/groups')
    assert len(groups) == 1 and len(groups[0]['alerts']) == 2, groups
    eventually(lambda: Receiver.told('naa.1', 'firing') and Receiver.told('naa.2', 'firing'), 'both are notified')
    road.submit('ryn.storage.apd.exit', 'naa.1')
    manager.shows('naa.2')
    eventually(lambda: Receiver.told('naa.1', 'resolved'), 'its end is notified')


def away_and_back(road, manager):
    """Nothing is lost while Alertmanager is away, nothing is told twice when it is back."""
    manager.stop()
    road.submit('ryn.storage.apd.exit', 'naa.2')
    road.submit('ryn.storage.apd.start', 'naa.3')
    eventually(lambda: all(sink.get('error') for sink in road.get('health')['sinks']), 'the agent notes the absence')
    road.stop_agent()  # which may itself come and go meanwhile
    road.start_agent()
    manager.start('data')
    manager.shows('naa.3')
    eventually(lambda: Receiver.told('naa.2', 'resolved') and Receiver.told('naa.3', 'firing'), 'both notified', 60)
    # One that lost what it knew is told all that is open.
    manager.stop()
    road.submit('ryn.storage.apd.start', 'naa.4')
    eventually(lambda: all(sink.get('error') for sink in road.get('health')['sinks']), 'the agent notes the absence')
    manager.start('other')
    manager.shows('naa.3', 'naa.4')
    # A notification repeats what else is in its group; what has ended is told once by each run.
    assert len({alert['endsAt'] for alert in Receiver.told('naa.2', 'resolved')}) == 1, Receiver.notified
    # Killed and started again, the agent goes on.
    road.stop_agent(9)
    road.start_agent()
    road.submit('ryn.storage.apd.exit', 'naa.3')
    manager.shows('naa.4')
    eventually(lambda: [bool(sink.get('error')) for sink in road.get('health')['sinks']] == [True, False],
               'only the journal, which is not there, is missed')


def metrics(road):
    text = road.get('metrics', as_json=False)
    check = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True, capture_output=True, check=False)
    assert check.returncode == 0 and not check.stderr, check.stderr + check.stdout
    for line in ('rynmgmtd_open_problems{severity="error"} 1', 'rynmgmtd_store_up 1', 'rynd_up 1'):
        assert line in text, text
    port = free_port()
    config = f'{road.root}/prometheus.yml'
    with open(config, 'w', encoding='utf-8') as file:
        target = road.url.split('//')[1].rstrip('/')
        json.dump({'global': {'scrape_interval': '500ms', 'scrape_timeout': '500ms'},
                   'scrape_configs': [{'job_name': 'rynmgmtd', 'static_configs': [{'targets': [target]}]}]}, file)
    road.spawn('prometheus', 'prometheus', f'--config.file={config}', f'--storage.tsdb.path={road.root}/tsdb',
               f'--web.listen-address=127.0.0.1:{port}', cwd=road.root)

    def value(query):
        answer = get(f'http://127.0.0.1:{port}/api/v1/query?query={query}')
        return answer['data']['result'][0]['value'][1] if answer and answer['data']['result'] else None
    eventually(lambda: value('up') == '1', 'Prometheus scrapes', 60)
    eventually(lambda: value('rynmgmtd_open_problems%7Bseverity=%22error%22%7D') == '1', 'the open problem is counted')


def main():
    need('prometheus', 'promtool', 'prometheus-alertmanager')
    os.environ['GOMAXPROCS'] = '1'
    port = free_port()
    # Below its root there is no journal.
    with Road(sys.argv[1], '--journal', '--alertmanager', f'http://127.0.0.1:{port}') as road:
        manager = Alertmanager(road, port)
        manager.start('data')
        fires_and_resolves(road, manager)
        away_and_back(road, manager)
        metrics(road)


main()
