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
//   node mock-codex-model.mjs requests LOG
//       Prints the requests of the log, and what each added to the input, for
//       a failed test's output.
//
// Codex's automatic approval reviewer (under --approve-for-me, when the hooks
// leave a request undecided) calls the same endpoint with the conversation so
// far and asks for a JSON verdict; it is told apart by that output schema and
// always allows. A reply depends on the request alone, so a retried request
// gets the same answer.

import { eventStream, pathOf, printOnce, printRequests, readLog, runCommand, sendJson, serve, serveArgs, textOf } from './mock-common.mjs';

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

const isReview = (body) => body?.text?.format?.schema?.properties?.outcome !== undefined;
const isConversation = (body) =>
  !isReview(body) && Array.isArray(body?.tools) && body.tools.some((tool) => tool.name === 'exec_command');

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
  const event = eventStream(response);
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

function answer({ method, path, body, scenario }, response) {
  if (method === 'POST' && path === '/v1/responses') {
    responseCount += 1;
    return sendStream(response, replyTo(body ?? {}, scenario));
  }
  return sendJson(response, 404, { error: { type: 'not_found', message: `no mock for ${path}` } });
}

const failure = (message) => ({ error: { type: 'server_error', message } });

const responseRequests = (file) =>
  readLog(file).filter((entry) => entry.method === 'POST' && pathOf(entry.url) === '/v1/responses');
const conversationInputs = (file) =>
  responseRequests(file).filter((entry) => isConversation(entry.body)).flatMap((entry) => entry.body.input ?? []);

function toolOutput(file, id) {
  const item = conversationInputs(file).find((item) => item.type === 'function_call_output' && item.call_id === id);
  if (!item) return 1;
  console.log(JSON.stringify(textOf(item.output)));
  return 0;
}

const userTexts = (file) =>
  conversationInputs(file)
    .filter((item) => item.type === 'message' && item.role === 'user')
    .map((item) => textOf(item.content));

// What a request added after the instructions and the environment.
const describeRequest = (body) => ({
  tag: isReview(body) ? ' (approval review)' : '',
  lines: (Array.isArray(body.input) ? body.input : [])
    .slice(2)
    .filter((item) => item.role !== 'developer')
    .slice(-4)
    .map((item) => `${item.type} ${item.role ?? ''} ${JSON.stringify(item.content ?? item.output ?? item.arguments ?? '').slice(0, 400)}`),
});

runCommand('mock-codex-model.mjs', {
  // Codex is started with this server as its HTTPS proxy: what it would fetch
  // from the internet (announcements, the plugin list) stays here.
  serve: { args: serveArgs, run: (...argv) => serve(argv, { scenarios, answer, failure, proxy: true }) },
  'tool-output': { args: 'LOG CALL_ID', run: toolOutput },
  'call-id': { args: 'SCENARIO', accepts: (scenario) => scenario in scenarios, run: (scenario) => console.log(checkedCallId(scenario)) },
  'user-text': { args: 'LOG', run: (log) => printOnce(userTexts(log)) },
  reviews: { args: 'LOG', run: (log) => console.log(responseRequests(log).filter((entry) => isReview(entry.body)).length) },
  requests: { args: 'LOG', run: (log) => printRequests(log, describeRequest) },
});
