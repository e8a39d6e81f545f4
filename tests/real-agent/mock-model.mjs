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
//   node mock-model.mjs requests LOG
//       Prints the requests of the log, and the last user turn of each
//       conversation request, for a failed test's output.
//
// The conversation is told apart from Claude Code's side calls (titles, quota
// probes, topic checks) by its tool list: only the main loop offers Bash.
// A reply depends on the request alone (how many tool results it carries,
// whether its last user turn is Stop hook feedback), so a retried request gets
// the same answer.

import { eventStream, printOnce, printRequests, readLog, runCommand, sendJson, serve, serveArgs, textOf } from './mock-common.mjs';

// The tool calls of each scenario, one per model turn, in order. A turn after
// the last call's result, or after Stop hook feedback, gets a short text.
const planText = '# Migration plan\n\n1. Copy the orders table to the new schema.\n2. Switch the readers over.\n';
const writeMarker = { name: 'Bash', input: { command: 'echo hi > marker', description: 'Write the marker file' } };
const scenarios = {
  stop: [],
  print: [],
  'print-many': [],
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
  const event = eventStream(response, { 'request-id': `req_mock_${messageCount}` });
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

function answer({ method, path, body, scenario }, response) {
  if (method === 'POST' && path === '/v1/messages/count_tokens') {
    return sendJson(response, 200, { input_tokens: 100 });
  }
  if (method === 'POST' && path === '/v1/messages') {
    const reply = replyTo(body ?? {}, scenario);
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
}

const failure = (message) => ({ type: 'error', error: { type: 'api_error', message } });

// The blocks of every user turn of the conversation, request after request.
const userBlocks = (file) =>
  readLog(file)
    .filter((entry) => entry.method === 'POST' && isConversation(entry.body))
    .flatMap((entry) => (entry.body.messages ?? []).filter((message) => message.role === 'user'))
    .flatMap(blocksOf);

function toolResult(file, id) {
  const block = userBlocks(file).find((block) => block.type === 'tool_result' && block.tool_use_id === id);
  if (!block) return 1;
  console.log(JSON.stringify({ is_error: block.is_error === true, text: textOf(block.content) }));
  return 0;
}

const userTexts = (file) => userBlocks(file).filter((block) => block.type === 'text').map((block) => block.text);

const describeRequest = (body) =>
  isConversation(body)
    ? { tag: ' (conversation)', lines: [`last user turn: ${JSON.stringify(lastUserTurn(body)).slice(0, 1500)}`] }
    : {};

runCommand('mock-model.mjs', {
  serve: { args: serveArgs, run: (...argv) => serve(argv, { scenarios, answer, failure }) },
  'tool-result': { args: 'LOG TOOL_USE_ID', run: toolResult },
  'tool-id': { args: 'SCENARIO', accepts: (scenario) => scenario in scenarios, run: (scenario) => console.log(checkedToolUseId(scenario)) },
  'user-text': { args: 'LOG', run: (log) => printOnce(userTexts(log)) },
  requests: { args: 'LOG', run: (log) => printRequests(log, describeRequest) },
});
