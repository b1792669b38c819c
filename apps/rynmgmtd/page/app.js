// The page: what is wrong with one host now, what happened before, live.
import {byId, debounce, setText} from './dom.js';
import {follow, get, setToken, TokenWanted} from './api.js';
import {growOlder, showProblems, step} from './problems.js';
import {forgetChoice, showTimeline, startTimeline} from './timeline.js';
import {addEvent, showEarlier, showEvents} from './events.js';

let search = '';
let stretch = null;
let following = false;
let wasLost = false;
const troubles = new Map();  // what does not work, by who says so

function showTroubles() {
  const box = byId('trouble');
  const text = [...troubles.values()].join(' ');
  setText(box, text);
  box.hidden = !text;
}

function say(who, text) {
  if (text) troubles.set(who, text);
  else troubles.delete(who);
  showTroubles();
}

/** Do `work`; say so when it fails, and ask for the token when that is why. */
async function attempt(who, work) {
  try {
    await work();
    say(who, '');
    return true;
  } catch (error) {
    if (error instanceof TokenWanted) askForToken();
    else if (error instanceof TypeError) say(who, 'The agent does not answer.');
    else say(who, `The agent says: ${error.message}.`);
    return false;
  }
}

function askForToken() {
  byId('content').hidden = true;
  byId('token-form').hidden = false;
  byId('token').focus();
}

const refreshProblems = () => attempt('problems', () => showProblems(search, refreshProblems));
const refreshTimeline = () => attempt('timeline', showTimeline);
const refreshEvents = () => attempt('events', () => showEvents(search, stretch));
const checkHealth = () => attempt('health', async () => {
  const health = await get('health');
  say('agent', health.wrong.length ? `The agent is not well: ${health.wrong.join('; ')}.` : '');
});

function showLive(state) {
  byId('live').className = `live ${state}`;
  setText(byId('live-text'), state === 'live' ? 'live' : 'not live, trying again');
  // Also where the stream alone is refused, what is open is known every few seconds; and what failed is gone again.
  if (state === 'live' && !wasLost) return;
  wasLost = state !== 'live';
  checkHealth();
  refreshProblems();
  if (!wasLost) refreshTimeline();
}

const problemsSoon = debounce(refreshProblems, 150);
const timelineSoon = debounce(refreshTimeline, 1000);

function handle(kind, data) {
  if (kind === 'event') {
    addEvent(data);
    timelineSoon();
  } else if (kind === 'problems') {
    problemsSoon();
  } else if (kind === 'reset') {
    refreshAll();
  }
}

async function refreshAll() {
  let answer = null;
  if (!await attempt('problems', async () => { answer = await showProblems(search, refreshProblems); })) return null;
  byId('content').hidden = false;
  byId('token-form').hidden = true;
  await Promise.all([refreshTimeline(), refreshEvents(), checkHealth()]);
  return answer;
}

async function start() {
  const answer = await refreshAll();
  if (!answer) {
    if (byId('token-form').hidden) setTimeout(start, 2000);
    return;
  }
  if (following) return;
  following = true;
  follow(answer.at, handle, showLive);
}

function startSearch() {
  const box = byId('search');
  const look = debounce(() => {
    search = box.value.trim();
    refreshProblems();
    refreshEvents();
  }, 200);
  box.addEventListener('input', look);
  byId('search-form').addEventListener('submit', event => { event.preventDefault(); look(); });
}

function startKeys() {
  document.addEventListener('keydown', event => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const typing = event.target.matches('input');
    if (event.key === 'Escape' && typing && event.target.value) {
      event.target.value = '';
      event.target.dispatchEvent(new Event('input'));
    } else if (typing) {
      return;
    } else if (event.key === '/') {
      event.preventDefault();
      byId('search').focus();
    } else if (event.key === 'j' || event.key === 'k') {
      step(event.key === 'j' ? 1 : -1);
    }
  });
}

function startTheme() {
  const key = 'rynmgmtd-theme';
  const names = {'': 'Theme: system', light: 'Theme: light', dark: 'Theme: dark'};
  let theme = localStorage.getItem(key) || '';
  const apply = () => {
    if (!(theme in names)) theme = '';
    document.documentElement.dataset.theme = theme;
    setText(byId('theme'), names[theme]);
  };
  byId('theme').addEventListener('click', () => {
    const all = Object.keys(names);
    theme = all[(all.indexOf(theme) + 1) % all.length];
    localStorage.setItem(key, theme);
    apply();
  });
  apply();
}

startTheme();
startKeys();
startSearch();
startTimeline(chosen => {
  stretch = chosen;
  refreshEvents();
  if (chosen) byId('events-title').scrollIntoView({block: 'start', behavior: 'auto'});
}, refreshTimeline);
byId('events-more').addEventListener('click', () => attempt('events', showEarlier));
byId('events-all').addEventListener('click', () => { stretch = null; forgetChoice(); refreshEvents(); });
byId('token-form').addEventListener('submit', event => {
  event.preventDefault();
  setToken(byId('token').value);
  byId('token').value = '';
  start();
});
setInterval(growOlder, 15000);
setInterval(checkHealth, 30000);
setInterval(refreshTimeline, 60000);
start();
