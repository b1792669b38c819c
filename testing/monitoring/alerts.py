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


class Receiver:
    """Where Alertmanager sends its notifications."""

    def __init__(self):
        self.notifications = []
        receiver = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers['Content-Length']))
                receiver.notifications.append(json.loads(body))
                self.send_response(200)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
        self.url = f'http://127.0.0.1:{self.server.server_port}/'
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def told(self, subject, status):
        return [alert for each in self.notifications for alert in each['alerts']
                if alert['labels'].get('subject') == subject and alert['status'] == status]


def get(url):
    try:
        with urllib.request.urlopen(url, timeout=10) as answer:
            return json.loads(answer.read())
    except (OSError, ValueError):
        return None


class Alertmanager:
    def __init__(self, road, receiver, port):
        self.road, self.port = road, port
        self.url = f'http://127.0.0.1:{port}'
        config = f'{road.root}/alertmanager.yml'
        with open(config, 'w', encoding='utf-8') as file:
            json.dump({'route': {'receiver': 'test', 'group_by': ['host'], 'group_wait': '300ms',
                                 'group_interval': '1s', 'repeat_interval': '4h'},
                       'receivers': [{'name': 'test', 'webhook_configs': [{'url': receiver.url}]}]}, file)
        self.config = config
        self.child = None

    def start(self, folder):
        self.child = self.road.spawn(
            'alertmanager', 'prometheus-alertmanager', f'--config.file={self.config}',
            f'--storage.path={self.road.root}/{folder}', f'--web.listen-address=127.0.0.1:{self.port}',
            '--cluster.listen-address=')
        eventually(lambda: get(f'{self.url}/api/v2/status'), 'Alertmanager serves')

    def stop(self):
        self.child.terminate()
        self.child.wait(20)

    def alerts(self):
        """State by subject: only what fires is listed."""
        found = get(f'{self.url}/api/v2/alerts') or []
        return {alert['labels'].get('subject'): alert for alert in found}


def fires_and_resolves(road, manager, receiver):
    road.submit('ryn.storage.apd.start', 'naa.1')
    road.submit('ryn.storage.apd.start', 'naa.2')
    eventually(lambda: set(manager.alerts()) == {'naa.1', 'naa.2'}, 'both fire')
    alert = manager.alerts()['naa.1']
    assert alert['labels']['alertname'] == 'amb.problem.storage.apd.start', alert
    assert alert['labels']['severity'] == 'error' and alert['labels']['host'], alert
    assert 'naa.1' in alert['annotations']['summary'] and alert['annotations']['description'], alert
    groups = get(f'{manager.url}/api/v2/alerts/groups')
    assert len(groups) == 1 and len(groups[0]['alerts']) == 2, groups
    eventually(lambda: receiver.told('naa.1', 'firing') and receiver.told('naa.2', 'firing'), 'both are notified')
    road.submit('ryn.storage.apd.exit', 'naa.1')
    eventually(lambda: set(manager.alerts()) == {'naa.2'}, 'one is resolved')
    eventually(lambda: receiver.told('naa.1', 'resolved'), 'its end is notified')


def away_and_back(road, manager, receiver):
    """Nothing is lost while Alertmanager is away, nothing is told twice when it is back."""
    manager.stop()
    road.submit('ryn.storage.apd.exit', 'naa.2')
    road.submit('ryn.storage.apd.start', 'naa.3')
    eventually(lambda: any(sink.get('error') for sink in road.get('health')['sinks']), 'the agent notes the absence')
    road.stop_agent()  # which may itself come and go meanwhile
    road.start_agent()
    manager.start('data')
    eventually(lambda: set(manager.alerts()) == {'naa.3'}, 'what ended is gone, what came is there', 60)
    eventually(lambda: receiver.told('naa.2', 'resolved') and receiver.told('naa.3', 'firing'), 'both notified', 60)
    eventually(lambda: all(not sink.get('error') for sink in road.get('health')['sinks']), 'the agent notes the return')
    # One that lost what it knew is told all that is open.
    manager.stop()
    road.submit('ryn.storage.apd.start', 'naa.4')
    eventually(lambda: any(sink.get('error') for sink in road.get('health')['sinks']), 'the agent notes the absence')
    manager.start('other')
    eventually(lambda: set(manager.alerts()) == {'naa.3', 'naa.4'}, 'all that is open', 60)
    for subject in ('naa.1', 'naa.2'):
        assert len(receiver.told(subject, 'resolved')) >= 1
    # A notification repeats what else is in its group; what has ended is told once by each run.
    ends = {json.dumps(alert['endsAt']) for alert in receiver.told('naa.2', 'resolved')}
    assert len(ends) == 1, ends


def killed(road, manager):
    """Killed and started again, the agent goes on: what ends then is resolved."""
    road.stop_agent(9)
    road.start_agent()
    road.submit('ryn.storage.apd.exit', 'naa.3')
    eventually(lambda: set(manager.alerts()) == {'naa.4'}, 'resolved behind a crash', 90)


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
    receiver = Receiver()
    port = free_port()
    with Road(sys.argv[1], '--alertmanager', f'http://127.0.0.1:{port}') as road:
        manager = Alertmanager(road, receiver, port)
        manager.start('data')
        fires_and_resolves(road, manager, receiver)
        away_and_back(road, manager, receiver)
        killed(road, manager)
        metrics(road)


main()
