// A stand-in for the Anthropic Messages API, just enough for Claude Code to run
// a scripted conversation offline. No dependencies beyond Node itself.
//
//   node mock-model.mjs serve --scenario NAME --log FILE --port-file FILE
//       Listens on 127.0.0.1 (a free port, written to FILE once listening) and
//       appends every request it gets, body included, to the log as one JSON line.
//   node mock-model.mjs tool-result LOG TOOL_USE_ID
//       Prints the tool_result Claude Code sent back for that call, as JSON
//       {"is_error":..., "text":...}; exits 1 if none arrived.
//   node mock-model.mjs tool-id SCENARIO
//       Prints the id of the tool call the scenario is about (its last one).
//   node mock-model.mjs user-text LOG
//       Prints every text block of every user turn the conversation sent, one
//       JSON string a line (side calls left out).
//
// The conversation is told apart from Claude Code's side calls (titles, quota
// probes, topic checks) by its tool list: only the main loop offers Bash.
// A reply depends on the request alone (how many tool results it carries,
// whether its last user turn is Stop hook feedback), so a retried request gets
// the same answer.

import http from 'node:http';
import fs from 'node:fs';

// The tool calls of each scenario, one per model turn, in order. A turn after
// the last call's result, or after Stop hook feedback, gets a short text.
const planText = '# Migration plan\n\n1. Copy the orders table to the new schema.\n2. Switch the readers over.\n';
const writeMarker = { name: 'Bash', input: { command: 'echo hi > marker', description: 'Write the marker file' } };
const scenarios = {
  stop: [],
  allow: [writeMarker],
  deny: [writeMarker],
  // Answered in Claude Code's own dialog (Esc, Yes) or by typing a new prompt,
  // while the request still waits in the app.
  esc: [writeMarker],
  yes: [writeMarker],
  typed: [],
  question: [
    {
      name: 'AskUserQuestion',
      input: {
        questions: [
          {
            question: 'Which database?',
            header: 'DB',
            options: [
              { label: 'Postgres', description: 'The production database engine' },
              { label: 'SQLite', description: 'A single file, for local runs' },
            ],
            multiSelect: false,
          },
        ],
      },
    },
  ],
  // As a real model does in plan mode: write the plan to the file Claude Code
  // names, then ask to leave plan mode (Claude Code reads the plan from there).
  plan: [
    { name: 'Write', input: (body) => ({ file_path: planFile(body), content: planText }) },
    { name: 'ExitPlanMode', input: () => ({}) },
  ],
};

// How long the conversation's replies take, where the scenario needs a model
// as slow as a real one: after the user answers Claude Code's own dialog, the
// next turn (and its Stop request) must not come sooner than a model would.
const thinkingMs = { yes: 1500 };

const toolUseId = (scenario, index) =>
  `toolu_01RealAgent${scenario[0].toUpperCase()}${scenario.slice(1)}${index + 1}`;

// The id of the call each scenario is about: its last one.
const checkedToolUseId = (scenario) => toolUseId(scenario, scenarios[scenario].length - 1);

function planFile(body) {
  const found = JSON.stringify(body.messages ?? []).match(/(\/[^"\s]*\/\.claude\/plans\/[^"\s]*?\.md)/);
  if (!found) throw new Error('no plan file named in the conversation');
  return found[1];
}

function parseArgs(argv) {
  const options = {};
  for (let i = 0; i < argv.length; i += 2) {
    if (!argv[i].startsWith('--') || i + 1 >= argv.length) throw new Error(`bad argument ${argv[i]}`);
    options[argv[i].slice(2)] = argv[i + 1];
  }
  return options;
}

const blocksOf = (message) =>
  typeof message.content === 'string' ? [{ type: 'text', text: message.content }] : message.content ?? [];

const isConversation = (body) => Array.isArray(body?.tools) && body.tools.some((tool) => tool.name === 'Bash');

function lastUserTurn(body) {
  const messages = body.messages ?? [];
  for (let i = messages.length - 1; i >= 0; i--) if (messages[i].role === 'user') return messages[i];
  return { role: 'user', content: [] };
}

// The blocks of the reply: a list of {type:'text', text} or {type:'tool_use', ...}.
function replyTo(body, scenario) {
  if (!isConversation(body)) {
    // The session-title call asks for JSON; the others take any short text.
    const wantsTitle = JSON.stringify(body.system ?? '').includes('\\"title\\"');
    return { blocks: [{ type: 'text', text: wantsTitle ? '{"title": "Scripted test session"}' : 'OK' }], stop: 'end_turn' };
  }
  const blocks = blocksOf(lastUserTurn(body));
  const feedback = blocks.some((block) => block.type === 'text' && block.text.includes('Stop hook feedback'));
  const results = (body.messages ?? [])
    .filter((message) => message.role === 'user')
    .flatMap(blocksOf)
    .filter((block) => block.type === 'tool_result').length;
  const moves = scenarios[scenario];
  if (feedback) return { blocks: [{ type: 'text', text: 'Understood, thank you.' }], stop: 'end_turn' };
  if (results >= moves.length) {
    const text = moves.length === 0 ? 'I finished the task.' : 'Noted the outcome of the tool.';
    return { blocks: [{ type: 'text', text }], stop: 'end_turn' };
  }
  const move = moves[results];
  return {
    blocks: [
      { type: 'text', text: 'Let me do that.' },
      {
        type: 'tool_use',
        id: toolUseId(scenario, results),
        name: move.name,
        input: typeof move.input === 'function' ? move.input(body) : move.input,
      },
    ],
    stop: 'tool_use',
  };
}

function usage() {
  return { input_tokens: 12, output_tokens: 8, cache_creation_input_tokens: 0, cache_read_input_tokens: 0 };
}

let messageCount = 0;

function messageShell(body) {
  messageCount += 1;
  return {
    id: `msg_01RealAgentMock${String(messageCount).padStart(4, '0')}`,
    type: 'message',
    role: 'assistant',
    model: body.model ?? 'claude-mock',
    content: [],
    stop_reason: null,
    stop_sequence: null,
    usage: usage(),
  };
}

function sendStream(response, body, reply) {
  response.writeHead(200, {
    'content-type': 'text/event-stream',
    'cache-control': 'no-cache',
    'request-id': `req_mock_${messageCount}`,
  });
  const event = (type, data) => response.write(`event: ${type}\ndata: ${JSON.stringify({ type, ...data })}\n\n`);
  event('message_start', { message: messageShell(body) });
  reply.blocks.forEach((block, index) => {
    if (block.type === 'text') {
      event('content_block_start', { index, content_block: { type: 'text', text: '' } });
      event('content_block_delta', { index, delta: { type: 'text_delta', text: block.text } });
    } else {
      event('content_block_start', { index, content_block: { type: 'tool_use', id: block.id, name: block.name, input: {} } });
      event('content_block_delta', { index, delta: { type: 'input_json_delta', partial_json: JSON.stringify(block.input) } });
    }
    event('content_block_stop', { index });
  });
  event('message_delta', { delta: { stop_reason: reply.stop, stop_sequence: null }, usage: { output_tokens: 8 } });
  event('message_stop', {});
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
      if (request.method === 'POST' && path === '/v1/messages/count_tokens') {
        return sendJson(response, 200, { input_tokens: 100 });
      }
      if (request.method === 'POST' && path === '/v1/messages') {
        let reply;
        try {
          reply = replyTo(body ?? {}, scenario);
        } catch (error) {
          console.error(`mock: cannot answer: ${error.message}`);
          return sendJson(response, 500, { type: 'error', error: { type: 'api_error', message: error.message } });
        }
        const send = () => {
          if (body?.stream) return sendStream(response, body, reply);
          const message = messageShell(body ?? {});
          message.content = reply.blocks;
          message.stop_reason = reply.stop;
          return sendJson(response, 200, message);
        };
        return setTimeout(send, isConversation(body) ? thinkingMs[scenario] ?? 0 : 0);
      }
      // Anything else (account and feature probes) gets an empty success, which
      // Claude Code treats as "nothing to report".
      return sendJson(response, path.startsWith('/v1/') ? 404 : 200, path.startsWith('/v1/')
        ? { type: 'error', error: { type: 'not_found_error', message: `no mock for ${path}` } }
        : {});
    });
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

const conversationRequests = (file) =>
  readLog(file).filter((entry) => entry.method === 'POST' && isConversation(entry.body));

function toolResult(file, id) {
  for (const entry of conversationRequests(file)) {
    for (const message of entry.body.messages ?? []) {
      if (message.role !== 'user') continue;
      for (const block of blocksOf(message)) {
        if (block.type !== 'tool_result' || block.tool_use_id !== id) continue;
        const text = typeof block.content === 'string'
          ? block.content
          : (block.content ?? []).filter((part) => part.type === 'text').map((part) => part.text).join('\n');
        console.log(JSON.stringify({ is_error: block.is_error === true, text }));
        return 0;
      }
    }
  }
  return 1;
}

function userTexts(file) {
  const seen = new Set();
  for (const entry of conversationRequests(file)) {
    for (const message of entry.body.messages ?? []) {
      if (message.role !== 'user') continue;
      for (const block of blocksOf(message)) {
        if (block.type !== 'text' || seen.has(block.text)) continue;
        seen.add(block.text);
        console.log(JSON.stringify(block.text));
      }
    }
  }
  return 0;
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'serve') {
  serve(parseArgs(rest));
} else if (command === 'tool-result' && rest.length === 2) {
  process.exit(toolResult(rest[0], rest[1]));
} else if (command === 'tool-id' && rest.length === 1 && rest[0] in scenarios) {
  console.log(checkedToolUseId(rest[0]));
} else if (command === 'user-text' && rest.length === 1) {
  process.exit(userTexts(rest[0]));
} else {
  console.error('usage: mock-model.mjs serve --scenario NAME --log FILE --port-file FILE\n' +
    '       mock-model.mjs tool-result LOG TOOL_USE_ID\n' +
    '       mock-model.mjs tool-id SCENARIO\n' +
    '       mock-model.mjs user-text LOG');
  process.exit(2);
}
