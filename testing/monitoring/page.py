#!/usr/bin/env python3
"""The web page in a browser, with the daemon and the agent behind it. Usage: page.py FOLDER-OF-THE-PROGRAMS"""
import sys
import time

from browser import Browser
from road import Road, eventually, need

MARKUP = '<img src=x onerror="document.title=1"><script>document.title=2</script>&amp;'


def texts(browser, selector):
    return browser.run('return [...document.querySelectorAll(arguments[0])].map(e => e.innerText)', selector)


def shows(browser, selector, words, seconds=30):
    eventually(lambda: any(words in each for each in texts(browser, selector)), f'"{words}" in {selector}', seconds)


def focused(browser):
    return browser.run('const e = document.activeElement; return e.innerText || e.getAttribute("aria-label") || e.id')


def live(road, browser):
    """A problem is shown with its event, and goes when it ends, without anybody's help."""
    shows(browser, '#live-text', 'live')
    shows(browser, '#verdict', 'No open problems')
    road.submit('ryn.storage.apd.start', 'naa.6001')
    shows(browser, '#problems .text', 'naa.6001')
    shows(browser, '#verdict', '1 problem open')
    shows(browser, '#announce', 'New error problem')
    road.submit('ryn.storage.apd.exit', 'naa.6001')
    shows(browser, '#verdict', 'No open problems')
    assert texts(browser, '#problems .card') == []
    shows(browser, '#announce', 'Ended')


def markup(road, browser):
    """What an event says is text, wherever it is shown."""
    road.submit('ryn.storage.apd.start', MARKUP)
    shows(browser, '#problems .subject', MARKUP)
    shows(browser, '#events .text', MARKUP)
    browser.run('document.querySelectorAll("summary").forEach(s => s.click())')
    shows(browser, '#problems dd', MARKUP)
    shows(browser, '#problems dt', 'What to do')
    assert browser.run('return document.querySelectorAll("main img, main script").length') == 0
    assert browser.run('return document.title').startswith('(1) ')
    browser.run('document.querySelectorAll("details").forEach(s => s.open = false)')


def search(road, browser):
    road.submit('ryn.storage.apd.start', 'naa.7777')
    shows(browser, '#problems .subject', 'naa.7777')
    browser.press('/')
    assert focused(browser) == 'search'
    browser.press(*'NAA.77')
    eventually(lambda: texts(browser, '#problems .subject') == ['naa.7777'], 'only what was looked for')
    eventually(lambda: len(texts(browser, '#events .event')) == 1, 'only its events')
    shows(browser, '#problems-count', '1 of 2')
    browser.press('Escape')
    eventually(lambda: len(texts(browser, '#problems .subject')) == 2, 'all again')


def time_line(road, browser):
    browser.run('document.querySelector("#bars .stretch:last-child").click()')
    shows(browser, '#events-range', 'to')
    eventually(lambda: len(texts(browser, '#events .event')) >= 4, 'what happened in the last half hour')
    browser.run('document.querySelector("#bars .stretch:first-child").click()')
    shows(browser, '#events-none', 'No events')
    browser.run('document.getElementById("events-all").click()')
    eventually(lambda: len(texts(browser, '#events .event')) >= 4, 'all events again')
    assert browser.run('return document.querySelectorAll("#bars .stretch").length') == 48
    browser.run('document.getElementById("week").click()')
    eventually(lambda: browser.run('return document.querySelectorAll("#bars .stretch").length') == 56, 'a week')
    label = browser.run('return document.querySelector("#bars .stretch:last-child").getAttribute("aria-label")')
    assert 'errors' in label, label


def keyboard(road, browser):
    """Everything by keys, each step of the way to be seen."""
    browser.open(road.url)
    shows(browser, '#problems .subject', 'naa.7777')
    shows(browser, '#events .text', 'naa.7777')
    browser.press('Tab')
    assert focused(browser).startswith('Skip'), focused(browser)
    stops = []
    for _ in range(40):
        browser.press('Tab')
        stops.append(focused(browser))
        assert browser.run('return getComputedStyle(document.activeElement).outlineStyle') != 'none', stops
        if any('naa.7777' in stop for stop in stops):
            break
    # Theme, four severities, the field, day and week, one bar of many, then the problems.
    assert any('Theme' in stop for stop in stops) and 'search' in stops and any('Week' in stop for stop in stops), stops
    assert len([stop for stop in stops if ' to ' in stop]) == 1, stops
    browser.press('Enter')
    eventually(lambda: any('rynctl ack' in each for each in texts(browser, '#problems details[open] dd')), 'its details')
    browser.press('j')
    browser.press('k')
    assert 'naa.7777' in focused(browser), focused(browser)
    browser.press('Enter')
    eventually(lambda: not texts(browser, '#problems details[open]'), 'closed by the same key')
    browser.run('document.querySelector("#bars [tabindex=\'0\']").focus()')
    browser.press('Home', 'ArrowRight', 'ArrowRight', 'ArrowLeft', 'Enter')
    eventually(lambda: browser.run('return [...document.querySelectorAll("#bars .stretch")].findIndex('
                                   'b => b.ariaPressed === "true")') == 1, 'the second bar is chosen')
    browser.press('Enter')
    browser.run('document.querySelector("#counts .error").focus()')
    browser.press('Space')
    eventually(lambda: browser.run('return document.querySelector("#counts .error").ariaPressed') == 'true', 'chosen')
    browser.press('Space')


def looks(browser):
    browser.size(360, 740, phone=True)
    width = browser.run('''return Math.max(document.documentElement.scrollWidth,
        ...[...document.querySelectorAll('body *:not(.skip):not(.unseen)')].map(e => e.getBoundingClientRect().right))''')
    assert width <= 360, f'{width} pixels wide'
    contrast = '''const light = c => { const [r, g, b] = c.match(/[0-9.]+/g).map(v => { v /= 255;
          return v <= .03928 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4; }); return .2126 * r + .7152 * g + .0722 * b; };
        const back = e => { for (; e; e = e.parentElement) { const c = getComputedStyle(e).backgroundColor;
          if (!/, 0\\)|transparent/.test(c)) return c; } return 'rgb(255,255,255)'; };
        return Math.min(...[...document.querySelectorAll('main *, header *')].filter(e => e.checkVisibility() &&
          [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())).map(e => { const a = light(back(e)),
          b = light(getComputedStyle(e).color); return (Math.max(a, b) + .05) / (Math.min(a, b) + .05); }));'''
    shades = []
    for scheme in ('light', 'dark'):
        browser.developer('Emulation.setEmulatedMedia', features=[{'name': 'prefers-color-scheme', 'value': scheme}])
        time.sleep(0.1)
        ratio = browser.run(contrast)
        assert ratio >= 4.5, f'{scheme}: contrast {ratio}'
        shades.append(browser.run('return getComputedStyle(document.body).backgroundColor'))
    assert shades[0] != shades[1], shades
    browser.size(1100, 900)


def restart(road, browser):
    """The agent goes and comes back at the same place: the page says so, and goes on."""
    where = road.url.split('//')[1].rstrip('/')
    road.stop_agent()
    shows(browser, '#live-text', 'not live')
    road.options = (*road.options, '--http', where)
    road.agent = road.spawn('rynmgmtd', 'rynmgmtd', *road.options)
    shows(browser, '#live-text', 'live', 60)
    road.submit('ryn.storage.apd.start', 'naa.after')
    shows(browser, '#problems .subject', 'naa.after', 60)
    eventually(lambda: texts(browser, '#live')[0] == 'live', 'live', 60)


def main():
    need('chromium', 'chromedriver')
    with Road(sys.argv[1]) as road, Browser() as browser:
        browser.size(1100, 900)
        browser.open(road.url)
        live(road, browser)
        markup(road, browser)
        search(road, browser)
        time_line(road, browser)
        keyboard(road, browser)
        looks(browser)
        complaints = browser.complaints()
        assert not complaints, complaints
        restart(road, browser)


main()
