// What is open: counts by severity, and the first 200 as cards that stay where they are while others come and go.
import {age, byId, count, el, number, setText, severities} from './dom.js';
import {problemDetails, unfolding} from './details.js';
import {get} from './api.js';

const shownAtMost = 200;
const cards = new Map();  // by the problem's number
let severity = '';
let known = null;  // Map of all that were shown last, to tell what is new
let clockSkew = 0;  // of this machine, against the agent's host
let turn = 0;

function announce(text) {
  const log = byId('announce');
  log.append(el('p', {}, text));
  while (log.children.length > 5) log.firstChild.remove();
}

function showCounts(counts, refresh) {
  const group = byId('counts');
  if (!group.children.length) {
    for (const name of severities) {
      const press = () => { severity = severity === name ? '' : name; refresh(); };
      group.append(el('button', {type: 'button', class: `tile ${name}`, 'data-severity': name, click: press},
                      el('span', {class: 'n'}), ' ', el('span', {class: 'what'})));
    }
  }
  for (const tile of group.children) {
    const name = tile.dataset.severity;
    setText(tile.firstChild, number(counts[name]));
    setText(tile.lastChild, count(counts[name], name).replace(/^\S+ /, ''));
    tile.classList.toggle('none', counts[name] === 0);
    tile.setAttribute('aria-pressed', String(severity === name));
  }
}

function showVerdict(answer) {
  const worst = severities.find(name => answer.counts[name] > 0);
  const verdict = byId('verdict');
  verdict.className = `verdict ${worst || 'fine'}`;
  setText(verdict, worst ? `${count(answer.open, 'problem')} open` : 'No open problems');
  document.title = worst ? `(${number(answer.open)}) ${answer.host} - rynd` : `${answer.host} - rynd`;
}

function newCard(problem) {
  const box = unfolding([
    el('span', {class: 'badge'}), ' ',
    el('span', {class: 'subject'}), ' ',
    el('span', {class: 'text'}), ' ',
    el('span', {class: 'facts'}, el('span', {class: 'age'}), el('span', {class: 'times'})),
  ], () => problemDetails(cards.get(problem.problem).problem), {class: `card ${problem.severity}`});
  return {item: el('li', {}, box), box, problem};
}

function fillCard(card, problem) {
  const part = name => card.box.querySelector(name);
  card.problem = problem;
  setText(part('.badge'), problem.severity);
  setText(part('.subject'), problem.subject || 'This host');
  setText(part('.text'), problem.text);
  setText(part('.times'), problem.times > 1 ? `${number(problem.times)} times` : '');
  setAge(card);
}

function setAge(card) {
  setText(card.box.querySelector('.age'), `for ${age(Date.now() + clockSkew - Date.parse(card.problem.since))}`);
}

function placeCards(problems) {
  const list = byId('problems');
  const wanted = new Set(problems.map(problem => problem.problem));
  for (const [id, card] of cards) {
    if (wanted.has(id)) continue;
    const next = card.item.nextElementSibling || card.item.previousElementSibling;
    if (card.item.contains(document.activeElement)) next?.querySelector('summary').focus();
    card.item.remove();
    cards.delete(id);
  }
  let place = list.firstElementChild;
  for (const problem of problems) {
    if (!cards.has(problem.problem)) cards.set(problem.problem, newCard(problem));
    const card = cards.get(problem.problem);
    fillCard(card, problem);
    if (card.item === place) place = place.nextElementSibling;
    else list.insertBefore(card.item, place);
  }
}

/** Read aloud what is new and what has ended, when it is not too much to listen to. */
function tellChanges(problems, total, filtered) {
  const now = new Map(problems.map(problem => [problem.problem, problem]));
  if (known && !filtered && total <= shownAtMost) {
    const fresh = problems.filter(problem => !known.has(problem.problem));
    const gone = [...known.values()].filter(problem => !now.has(problem.problem));
    if (fresh.length + gone.length > 3) announce(`${count(total, 'problem')} open`);
    else {
      for (const problem of fresh) announce(`New ${problem.severity} problem: ${problem.text}`);
      for (const problem of gone) announce(`Ended: ${problem.text}`);
    }
  }
  known = filtered ? null : now;
}

/** Fetch and show what is open, of what `search` finds. The agent's answer. */
export async function showProblems(search, refresh) {
  const mine = ++turn;
  const answer = await get('api/problems', {limit: shownAtMost, q: search, severity});
  if (mine !== turn) return answer;  // a later question was answered
  clockSkew = Date.parse(answer.now) - Date.now();
  setText(byId('host'), answer.host);
  showVerdict(answer);
  showCounts(answer.counts, refresh);
  placeCards(answer.problems);
  const filtered = search !== '' || severity !== '';
  tellChanges(answer.problems, answer.matching, filtered);
  setText(byId('problems-count'), filtered ? `${number(answer.matching)} of ${number(answer.open)}` : '');
  const rest = byId('problems-rest');
  rest.hidden = answer.matching <= answer.problems.length && answer.matching > 0;
  const unseen = answer.matching - answer.problems.length;
  setText(rest, answer.matching > 0 ? `and ${number(unseen)} more: search, or choose a severity`
                : filtered ? 'No open problem fits.' : 'No problem is open.');
  return answer;
}

/** Let what is shown grow older. */
export function growOlder() {
  for (const card of cards.values()) setAge(card);
}

/** Move the focus to the next problem, or with -1 to the one before. */
export function step(by) {
  const all = [...byId('problems').querySelectorAll('summary')];
  if (!all.length) return;
  const at = all.indexOf(document.activeElement);
  const to = at < 0 ? (by > 0 ? 0 : all.length - 1) : Math.min(all.length - 1, Math.max(0, at + by));
  all[to].focus();
}
