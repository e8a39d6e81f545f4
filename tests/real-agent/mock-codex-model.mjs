// A stand-in for the OpenAI Responses API, just enough for Codex CLI (a custom
// model provider with wire_api "responses") to run a scripted conversation
// offline. No dependencies beyond Node itself.
//
//   node mock-codex-model.mjs serve --scenario NAME --log FILE --port-file FILE
//       Listens on 127.0.0.1 (a free port, written to FILE once listening) and
//       appends every request it gets, body included, to the log as one JSON line.
//       As Codex's proxy it logs and refuses every CONNECT.
//   node mock-codex-model.mjs tool-output LOG CALL_ID
//       Prints the output Codex sent back for that call as a JSON string; exits
//       1 if none arrived.
//   node mock-codex-model.mjs call-id SCENARIO
//       Prints the id of the call the scenario is about.
//   node mock-codex-model.mjs user-text LOG
//       Prints the text of every user message the conversation sent, one JSON
//       string a line (side calls left out).
//   node mock-codex-model.mjs reviews LOG
//       Prints how many requests of Codex's automatic approval reviewer arrived.
//
// Codex's automatic approval reviewer (under --approve-for-me, when the hooks
// leave a request undecided) calls the same endpoint with the conversation so
// far and asks for a JSON verdict; it is told apart by that output schema and
// always allows. A reply depends on the request alone, so a retried request
// gets the same answer.

import http from 'node:http';
import fs from 'node:fs';

// The shell call of the permission scenarios: it asks to run outside the
// sandbox, which is what makes Codex seek approval under --approve-for-me.
const escalatedMarker = {
  cmd: 'echo hi > marker',
  sandbox_permissions: 'require_escalated',
  justification: 'Write the marker file',
};
const scenarios = {
  stop: [],
  allow: [escalatedMarker],
  deny: [escalatedMarker],
  none: [escalatedMarker],
};

const callId = (scenario, index) => `call_RealAgent${scenario[0].toUpperCase()}${scenario.slice(1)}${index + 1}`;
const checkedCallId = (scenario) => callId(scenario, scenarios[scenario].length - 1);

function parseArgs(argv) {
  const options = {};
  for (let i = 0; i < argv.length; i += 2) {
    if (!argv[i].startsWith('--') || i + 1 >= argv.length) throw new Error(`bad argument ${argv[i]}`);
    options[argv[i].slice(2)] = argv[i + 1];
  }
  return options;
}

const isReview = (body) => body?.text?.format?.schema?.properties?.outcome !== undefined;
const isConversation = (body) =>
  !isReview(body) && Array.isArray(body?.tools) && body.tools.some((tool) => tool.name === 'exec_command');

const textOf = (item) =>
  typeof item.content === 'string'
    ? item.content
    : (item.content ?? []).filter((part) => typeof part.text === 'string').map((part) => part.text).join('\n');

// The reply: a list of output items (assistant messages and function calls).
function replyTo(body, scenario) {
  if (isReview(body)) {
    const verdict = { risk_level: 'low', user_authorization: 'high', outcome: 'allow', rationale: 'The user asked for it.' };
    return [message(JSON.stringify(verdict))];
  }
  if (!isConversation(body)) return [message('OK')];
  const input = Array.isArray(body.input) ? body.input : [];
  const results = input.filter((item) => item.type === 'function_call_output').length;
  const last = input.at(-1);
  const spokeBefore = input.some((item) => item.type === 'message' && item.role === 'assistant');
  // A user message after the model has already spoken is a Stop hook's reason.
  if (last?.type === 'message' && last.role === 'user' && spokeBefore) return [message('Understood, thank you.')];
  const moves = scenarios[scenario];
  if (results >= moves.length) return [message(moves.length === 0 ? 'I finished the task.' : 'Noted the outcome of the tool.')];
  return [
    message('Let me do that.'),
    {
      type: 'function_call',
      id: `fc_${callId(scenario, results)}`,
      call_id: callId(scenario, results),
      name: 'exec_command',
      arguments: JSON.stringify(moves[results]),
    },
  ];
}

let responseCount = 0;

function message(text) {
  return { type: 'message', role: 'assistant', id: `msg_mock_${responseCount}_${text.length}`, content: [{ type: 'output_text', text, annotations: [] }] };
}

function sendStream(response, items) {
  const id = `resp_mock_${responseCount}`;
  response.writeHead(200, { 'content-type': 'text/event-stream', 'cache-control': 'no-cache' });
  const event = (type, data) => response.write(`event: ${type}\ndata: ${JSON.stringify({ type, ...data })}\n\n`);
  event('response.created', { response: { id } });
  items.forEach((item, index) => {
    event('response.output_item.added', { output_index: index, item });
    if (item.type === 'message') {
      event('response.output_text.delta', { output_index: index, item_id: item.id, content_index: 0, delta: item.content[0].text });
    }
    event('response.output_item.done', { output_index: index, item });
  });
  event('response.completed', {
    response: {
      id,
      usage: { input_tokens: 12, input_tokens_details: null, output_tokens: 8, output_tokens_details: null, total_tokens: 20 },
    },
  });
  response.end();
}

function sendJson(response, status, value) {
  response.writeHead(status, { 'content-type': 'application/json' });
  response.end(JSON.stringify(value));
}

function serve(options) {
  const scenario = options.scenario;
  if (!(scenario in scenarios)) throw new Error(`unknown scenario ${scenario}`);
  const logFile = options.log;
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
      const path = new URL(request.url, 'http://127.0.0.1').pathname;
      fs.appendFileSync(
        logFile,
        JSON.stringify({ time: new Date().toISOString(), method: request.method, url: request.url, body }) + '\n',
      );
      if (request.method === 'POST' && path === '/v1/responses') {
        responseCount += 1;
        let items;
        try {
          items = replyTo(body ?? {}, scenario);
        } catch (error) {
          console.error(`mock: cannot answer: ${error.message}`);
          return sendJson(response, 500, { error: { type: 'server_error', message: error.message } });
        }
        return sendStream(response, items);
      }
      return sendJson(response, 404, { error: { type: 'not_found', message: `no mock for ${path}` } });
    });
  });
  // Codex is started with this server as its HTTPS proxy, so that what it
  // would fetch from the internet (announcements, the plugin list) stays here:
  // logged and refused.
  server.on('connect', (request, socket) => {
    fs.appendFileSync(logFile, JSON.stringify({ time: new Date().toISOString(), method: 'CONNECT', url: request.url }) + '\n');
    socket.end('HTTP/1.1 403 Forbidden\r\ncontent-length: 0\r\n\r\n');
  });
  server.listen(0, '127.0.0.1', () => {
    fs.writeFileSync(options['port-file'], String(server.address().port));
  });
  const stop = () => server.close(() => process.exit(0));
  process.on('SIGTERM', stop);
  process.on('SIGINT', stop);
}

function readLog(file) {
  return fs
    .readFileSync(file, 'utf8')
    .split('\n')
    .filter(Boolean)
    .map((line) => JSON.parse(line));
}

const responseRequests = (file) =>
  readLog(file).filter((entry) => entry.method === 'POST' && new URL(entry.url, 'http://127.0.0.1').pathname === '/v1/responses');
const conversationInputs = (file) =>
  responseRequests(file).filter((entry) => isConversation(entry.body)).flatMap((entry) => entry.body.input ?? []);

function toolOutput(file, id) {
  for (const item of conversationInputs(file)) {
    if (item.type !== 'function_call_output' || item.call_id !== id) continue;
    console.log(JSON.stringify(typeof item.output === 'string' ? item.output : textOf({ content: item.output })));
    return 0;
  }
  return 1;
}

function userTexts(file) {
  const seen = new Set();
  for (const item of conversationInputs(file)) {
    if (item.type !== 'message' || item.role !== 'user') continue;
    const text = textOf(item);
    if (seen.has(text)) continue;
    seen.add(text);
    console.log(JSON.stringify(text));
  }
  return 0;
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'serve') {
  serve(parseArgs(rest));
} else if (command === 'tool-output' && rest.length === 2) {
  process.exit(toolOutput(rest[0], rest[1]));
} else if (command === 'call-id' && rest.length === 1 && rest[0] in scenarios) {
  console.log(checkedCallId(rest[0]));
} else if (command === 'user-text' && rest.length === 1) {
  process.exit(userTexts(rest[0]));
} else if (command === 'reviews' && rest.length === 1) {
  console.log(responseRequests(rest[0]).filter((entry) => isReview(entry.body)).length);
} else {
  console.error('usage: mock-codex-model.mjs serve --scenario NAME --log FILE --port-file FILE\n' +
    '       mock-codex-model.mjs tool-output LOG CALL_ID\n' +
    '       mock-codex-model.mjs call-id SCENARIO\n' +
    '       mock-codex-model.mjs user-text LOG\n' +
    '       mock-codex-model.mjs reviews LOG');
  process.exit(2);
}
