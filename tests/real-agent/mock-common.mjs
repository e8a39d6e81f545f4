// What the two mock models (mock-model.mjs for Claude Code, mock-codex-model.mjs
// for Codex) share: the HTTP server and its request log, the framing of
// server-sent events, reading the log back, and the command line of their
// subcommands. No dependencies beyond Node itself.

import http from 'node:http';
import fs from 'node:fs';

export const serveArgs = '--scenario NAME --log FILE --port-file FILE';

function parseArgs(argv) {
  const options = {};
  for (let i = 0; i < argv.length; i += 2) {
    if (!argv[i].startsWith('--') || i + 1 >= argv.length) throw new Error(`bad argument ${argv[i]}`);
    options[argv[i].slice(2)] = argv[i + 1];
  }
  return options;
}

export const pathOf = (url) => new URL(url, 'http://127.0.0.1').pathname;

// Appends ENTRY to the log as one JSON line, stamped with the time.
function logRequest(file, entry) {
  fs.appendFileSync(file, JSON.stringify({ time: new Date().toISOString(), ...entry }) + '\n');
}

// `serve ARGV`: listens on 127.0.0.1 (a free port, written to the port file
// once listening), logs every request with its body, and leaves the reply to
// answer({ method, path, body, scenario }, response). Should answer throw, the
// agent gets a 500 with failure(message) for a body and the mock's output says
// why. As a proxy (when the agent is started with the mock as its HTTPS proxy,
// so that what it would fetch from the internet stays here) it logs and
// refuses every CONNECT.
export function serve(argv, { scenarios, answer, failure, proxy = false }) {
  const options = parseArgs(argv);
  const scenario = options.scenario;
  if (!(scenario in scenarios)) throw new Error(`unknown scenario ${scenario}`);
  const server = http.createServer((request, response) => {
    const chunks = [];
    request.on('data', (chunk) => chunks.push(chunk));
    request.on('end', () => {
      const raw = Buffer.concat(chunks).toString('utf8');
      let body = null;
      try {
        body = raw ? JSON.parse(raw) : null;
      } catch {
        body = raw;
      }
      logRequest(options.log, { method: request.method, url: request.url, body });
      try {
        answer({ method: request.method, path: pathOf(request.url), body, scenario }, response);
      } catch (error) {
        console.error(`mock: cannot answer: ${error.message}`);
        sendJson(response, 500, failure(error.message));
      }
    });
  });
  if (proxy) {
    server.on('connect', (request, socket) => {
      logRequest(options.log, { method: 'CONNECT', url: request.url });
      socket.end('HTTP/1.1 403 Forbidden\r\ncontent-length: 0\r\n\r\n');
    });
  }
  server.listen(0, '127.0.0.1', () => {
    fs.writeFileSync(options['port-file'], String(server.address().port));
  });
  const stop = () => server.close(() => process.exit(0));
  process.on('SIGTERM', stop);
  process.on('SIGINT', stop);
}

export function sendJson(response, status, value) {
  response.writeHead(status, { 'content-type': 'application/json' });
  response.end(JSON.stringify(value));
}

// Starts a stream of server-sent events; returns a function that writes one,
// its data {type, ...data} as both APIs frame them.
export function eventStream(response, headers = {}) {
  response.writeHead(200, { 'content-type': 'text/event-stream', 'cache-control': 'no-cache', ...headers });
  return (type, data) => response.write(`event: ${type}\ndata: ${JSON.stringify({ type, ...data })}\n\n`);
}

export function readLog(file) {
  return fs
    .readFileSync(file, 'utf8')
    .split('\n')
    .filter(Boolean)
    .map((line) => JSON.parse(line));
}

// The text of a message's or a tool result's content: a string, or the text
// of its parts.
export const textOf = (content) =>
  typeof content === 'string'
    ? content
    : (content ?? []).filter((part) => typeof part.text === 'string').map((part) => part.text).join('\n');

// Prints each text once, in the order first seen, as a JSON string a line.
export function printOnce(texts) {
  for (const text of new Set(texts)) console.log(JSON.stringify(text));
}

// `requests LOG`, for a failed test's output: a line per request, "TIME METHOD
// URL" and then the tag describe(body) gives it, and below it the lines it gives.
export function printRequests(file, describe) {
  for (const entry of readLog(file)) {
    const { tag = '', lines = [] } = describe(entry.body ?? {});
    console.log(`${entry.time} ${entry.method} ${entry.url}${tag}`);
    for (const line of lines) console.log(`  ${line}`);
  }
}

// Runs the subcommand named on the command line. COMMANDS maps each name to
// { args, run, accepts }: ARGS its synopsis, a word an argument; RUN takes the
// arguments and returns the exit status, if there is one; ACCEPTS, when given,
// may turn them down. A wrong name, count or argument prints the usage, exit 2.
export function runCommand(program, commands) {
  const [name, ...argv] = process.argv.slice(2);
  const command = Object.hasOwn(commands, name) ? commands[name] : undefined;
  if (command && argv.length === command.args.split(' ').length && (command.accepts?.(...argv) ?? true)) {
    const status = command.run(...argv);
    if (typeof status === 'number') process.exit(status);
    return;
  }
  const synopses = Object.entries(commands).map(([other, { args }]) => `${program} ${other} ${args}`);
  console.error(`usage: ${synopses.join('\n       ')}`);
  process.exit(2);
}
