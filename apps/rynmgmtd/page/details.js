// What stands behind a problem or an event when it is opened.
import {el, timeElement, when} from './dom.js';
import {explain} from './api.js';

function entry(list, heading, ...content) {
  list.append(el('dt', {}, heading), el('dd', {}, ...content));
}

function words(value) {
  return value === null ? 'not readable' : String(value);
}

function steps(action) {
  if (action.length === 1) return el('p', {}, action[0]);
  return el('ol', {}, ...action.map(step => el('li', {}, step)));
}

async function addExplanation(list, name) {
  const entryOf = await explain(name);
  if (!entryOf) return;
  const first = list.firstChild;
  const part = el('dl');
  entry(part, 'What has happened', entryOf.means);
  entry(part, 'What it does', entryOf.impact);
  if (entryOf.action.length) entry(part, 'What to do', steps(entryOf.action));
  if (entryOf.cleared_by.length) entry(part, 'What ends it', entryOf.cleared_by.join(', '));
  if (entryOf.cleared === 'by hand') entry(part, 'What ends it', 'you do, once it is dealt with');
  for (const child of [...part.childNodes]) list.insertBefore(child, first);
}

/** The details of a problem; its explanation arrives a moment later. */
export function problemDetails(problem) {
  const list = el('dl', {class: 'details'});
  for (const [name, value] of Object.entries(problem.about)) entry(list, name, words(value));
  entry(list, 'First', timeElement(problem.since, when(new Date(problem.since))));
  if (problem.times > 1) entry(list, 'Last', timeElement(problem.last, when(new Date(problem.last))));
  entry(list, 'Event', el('code', {}, problem.name));
  entry(list, 'Once dealt with', el('code', {}, `rynctl ack ${problem.id}`));
  addExplanation(list, problem.name);
  return list;
}

export function eventDetails(event) {
  const list = el('dl', {class: 'details'});
  for (const argument of event.arguments) entry(list, String(argument.name), words(argument.value));
  if (event.damage) entry(list, 'Damaged', event.damage);
  entry(list, 'Time', timeElement(event.time, new Date(event.time).toLocaleString()));
  entry(list, 'Event', el('code', {}, event.name));
  entry(list, 'Number', el('code', {}, String(event.id)));
  addExplanation(list, event.name);
  return list;
}

/** A <details> whose content is made when it is opened for the first time. */
export function unfolding(summary, make, attributes = {}) {
  const box = el('details', attributes, el('summary', {}, ...summary));
  box.addEventListener('toggle', () => {
    if (box.open && box.children.length === 1) box.append(make());
  });
  return box;
}
