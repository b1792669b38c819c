// The agent's answers, and what it tells by itself.

const tokenKey = 'rynmgmtd-token';
let token = sessionStorage.getItem(tokenKey) || '';

export class TokenWanted extends Error {}

export function setToken(text) {
  token = text.trim();
  sessionStorage.setItem(tokenKey, token);
}

function headers(more = {}) {
  return token ? {...more, Authorization: `Bearer ${token}`} : more;
}

/** Fetch `path` with the parameters that are not empty. Throws TokenWanted, or an Error with the agent's own words. */
export async function get(path, parameters = {}, {signal} = {}) {
  const query = new URLSearchParams();
  for (const [name, value] of Object.entries(parameters)) if (value !== '' && value != null) query.append(name, value);
  const text = query.toString();
  const response = await fetch(path + (text ? `?${text}` : ''), {headers: headers(), cache: 'no-store', signal});
  if (response.status === 401) throw new TokenWanted();
  const body = await response.json();
  if (!response.ok && path !== 'health') throw new Error(body.error || `the agent answered ${response.status}`);
  return body;
}

const explanations = new Map();
/** What the catalogue says of an event; null when it knows nothing. */
export function explain(name) {
  if (!explanations.has(name)) {
    explanations.set(name, get('api/explain', {name}).catch(() => { explanations.delete(name); return null; }));
  }
  return explanations.get(name);
}

/** Split what arrives into messages: {id, event, data}. */
async function* messages(body) {
  const reader = body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = '';
  for (;;) {
    const {value, done} = await reader.read();
    if (done) return;
    const parts = (rest + value).split('\n\n');
    rest = parts.pop();
    for (const part of parts) {
      const message = {event: 'message', data: ''};
      for (const line of part.split('\n')) {
        const colon = line.indexOf(': ');
        if (colon > 0) message[line.slice(0, colon)] = line.slice(colon + 2);
      }
      yield message;
    }
  }
}

/**
 * Follow the stream from `last` on for good, coming back after each break and going on where it was.
 * `handle(kind, data)` for each message; `status('live' | 'lost')`.
 */
export async function follow(last, handle, status) {
  let pause = 500;
  for (;;) {
    const silence = new AbortController();
    let timer = 0;
    // The agent gives a sign of life every 15 s: one that says nothing for longer is gone, whatever the socket thinks.
    const heard = () => { clearTimeout(timer); timer = setTimeout(() => silence.abort(), 40000); };
    try {
      heard();
      const response = await fetch('api/stream', {
        headers: headers({'Last-Event-ID': last}), cache: 'no-store', signal: silence.signal});
      if (!response.ok) throw new Error(String(response.status));
      for await (const message of messages(response.body)) {
        heard();
        if (message.event === 'hello') { status('live'); pause = 500; }
        else if (message.event !== 'message') handle(message.event, JSON.parse(message.data));
        if (message.id) last = message.id;
      }
    } catch (error) {
      if (!(error instanceof TypeError || error.name === 'AbortError')) console.warn('stream:', error.message);
    }
    clearTimeout(timer);
    status('lost');
    await new Promise(resolve => setTimeout(resolve, pause));
    pause = Math.min(pause * 2, 10000);
  }
}
