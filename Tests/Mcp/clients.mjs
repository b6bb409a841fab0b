// Drives `tervainctl mcp` on a desktop with clients that others have made.
//
//   node clients.mjs TERVAINCTL SERVE_UNIX AGENT

import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import { rmSync } from 'node:fs';
import { setTimeout as pause } from 'node:timers/promises';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { Client as NewerClient } from '@modelcontextprotocol/client';
import { StdioClientTransport as NewerTransport } from '@modelcontextprotocol/client/stdio';

const [tervainctl, serveUnix, agentProgram] = process.argv.slice(2);
const socket = `${process.env.TERVAIN_DESKTOP}/mcp.sock`;
const server = { command: tervainctl, args: ['--agent', `unix:${socket}`, 'mcp'] };
const greeting = { name: 'test', version: '1' };

function startAgent() {
  rmSync(socket, { force: true });
  return spawn(serveUnix, [socket, agentProgram],
    { stdio: 'ignore', env: { ...process.env, TERVAIN_DULK_DISABLE: '1' } });
}

async function endAgent(agent) {
  agent.kill('SIGKILL');
  await once(agent, 'exit');
}

async function until(what, condition) {
  for (const end = Date.now() + 30_000; !(await condition());) {
    assert(Date.now() < end, `not in time: ${what}`);
    await pause(20);
  }
}

const client = new Client(greeting);
await client.connect(new StdioClientTransport(server));

const call = (name, args = {}, options = {}) =>
  client.callTool({ name, arguments: args }, undefined, options);
const textOf = (result) => result.content.find((part) => part.type === 'text').text;

async function done(name, args) {
  const result = await call(name, args);
  assert(!result.isError, `${name}: ${textOf(result)}`);
  return result;
}

async function fails(name, args, words) {
  const result = await call(name, args);
  assert(result.isError, `${name} did not fail`);
  assert.match(textOf(result), words);
}

const refOf = (outline, line) => outline.split('\n').find((text) => line.test(text)).trim().split(' ')[0];

// Without a guest there are the tools, and calls say what is missing.
const { tools } = await client.listTools();
assert.deepEqual(tools.map((tool) => tool.name).sort(), ['click', 'drag', 'exec', 'find', 'focus',
  'key', 'launch', 'move', 'press', 'screenshot', 'scroll', 'set_value', 'snapshot', 'status',
  'type', 'wait']);
for (const tool of tools) {
  assert.equal(Object.values(tool.annotations).filter((hint) => typeof hint === 'boolean').length, 4);
}
await fails('status', {}, /away/);
await assert.rejects(client.callTool({ name: 'no such tool' }), /-32602/);

let agent = startAgent();
process.on('exit', () => agent.kill('SIGKILL'));  // also where a check has failed
await until('status', async () => !(await call('status')).isError);

// An editor is launched, typed into, read and used by its menu.
await done('launch', { name: 'mousepad' });
await done('wait', { role: 'textarea', timeout: 30 });
await done('focus', { role: 'AXTextArea', exact: true });
await done('type', { text: 'Grüße aus 東京' });
await done('wait', { role: 'textarea', value: 'grüße aus 東京' });
await done('press', { role: 'menubaritem', title: 'edit' });
await done('wait', { role: 'menuitem', title: 'select all' });
await done('press', { role: 'menuitem', title: 'Select All' });
await done('wait', { role: 'menuitem', title: 'select all', gone: true });
await done('key', { chord: 'delete' });
await done('wait', { role: 'textarea', value: 'grüße', gone: true });
await fails('press', { role: 'menubaritem' }, /elements fit/);
await fails('press', { role: 'menuitem', title: 1 }, /not a text/);
await fails('press', { words: 'Save' }, /there is no "words"; press takes/);

// Refs of the last eight snapshots are good, those before are told apart.
const outline = textOf(await done('snapshot'));
const area = refOf(outline, /AXTextArea/);
for (let i = 0; i < 7; ++i) {
  await done('snapshot', { depth: 2 });
  await done('find', { role: 'textarea' });
}
await done('find', { role: 'textarea' });
await done('set_value', { ref: area, value: 'by its ref' });
await done('wait', { value: 'by its ref', exact: true });
await done('snapshot', { depth: 2 });
await fails('focus', { ref: area }, /older.*take a new snapshot/);

// A place in a picture is a place to click.
const pointer = () => execFileSync(tervainctl, ['--agent', `unix:${socket}`, 'cursor'], { encoding: 'utf8' }).trim();
await done('move', { x: 600, y: 300 });
assert.equal(pointer(), '600 300');
const picture = (await done('screenshot')).content.find((part) => part.type === 'image');
assert(picture.data.length < 1 << 20);
assert.equal(Buffer.from(picture.data, 'base64').readUInt16BE(0), 0xffd8);
await done('move', { x: 600, y: 300 });
assert.equal(pointer(), '900 450');
const part = await done('screenshot', { region: { x: 200, y: 100, width: 100, height: 50 } });
assert.deepEqual(part.structuredContent, { display: 0, width: 150, height: 75 });
await done('move', { x: 10, y: 20 });
assert.equal(pointer(), '310 170');
await done('screenshot', { max: 640 });
const shown = textOf(await done('find', { role: 'textarea' }));
const [, x, y, width, height] = shown.match(/ (\d+),(\d+) (\d+)x(\d+)/).map(Number);
await done('click', { ref: shown.split(' ')[0] });
const [atX, atY] = pointer().split(' ').map(Number);
assert(Math.abs(atX / 3 - (x + width / 2)) < 3 && Math.abs(atY / 3 - (y + height / 2)) < 3);

// Commands: one that fails, one that reads, one that says too much, and those that never end.
const failing = await call('exec', { command: 'echo out; echo err >&2; exit 7' });
assert.deepEqual(failing.structuredContent,
  { exitCode: 7, stdout: 'out\n', stderr: 'err\n', truncated: false });
assert.equal((await done('exec', { command: 'cat', stdin: 'read' })).structuredContent.stdout, 'read');
assert.equal((await done('exec', { command: 'cat' })).structuredContent.stdout, '');
const flood = await done('exec', { command: 'head -c 300000 /dev/urandom' });
assert(flood.structuredContent.truncated && Buffer.byteLength(textOf(flood)) <= 60_000);
const running = (seconds) => call('exec', { command: `ps -eo args | grep -c '^slee[p] ${seconds}$'` })
  .then((result) => result.structuredContent.stdout.trim() !== '0');
await fails('exec', { command: 'sleep 41234', timeout: 0.3 }, /Killed/);
await until('the end of what took too long', async () => !(await running(41234)));
const cancel = new AbortController();
const endless = call('exec', { command: 'sleep 41235', timeout: 1000 }, { signal: cancel.signal });
await until('the start of a command', () => running(41235));  // so calls run side by side
cancel.abort();
await assert.rejects(endless);
await until('the end of a cancelled command', async () => !(await running(41235)));

// The guest goes, and comes back.
const abandoned = call('exec', { command: 'sleep 6.41236', timeout: 1000 });
await until('the start of a command', () => running('6.41236'));
await endAgent(agent);
assert((await abandoned).isError);
await fails('snapshot', {}, /away/);
agent = startAgent();
await until('status', async () => !(await call('status')).isError);
await done('snapshot');

// The newer client, which speaks the stateless era.
const newer = new NewerClient(greeting, { versionNegotiation: { mode: 'auto' } });
await newer.connect(new NewerTransport(server));
assert.equal(newer.getProtocolEra(), 'modern');
assert.deepEqual((await newer.listTools()).tools.length, tools.length);
const told = await newer.callTool({ name: 'exec', arguments: { command: 'exit 3' } });
assert.equal(told.structuredContent.exitCode, 3);
await newer.close();

// The end of its input is the server's end; what was asked just before is answered.
const bare = spawn(server.command, server.args, { stdio: ['pipe', 'pipe', 'inherit'] });
let answers = '';
bare.stdout.on('data', (data) => { answers += data; });
bare.stdin.end('{"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"status"}}\n'
  + '{"jsonrpc":"2.0","id":"2","method":"tools/call","params":{"name":"exec","arguments":{"command":"sleep 41237"}}}\n'
  + 'no JSON\n');
const [code] = await once(bare, 'close');
assert.equal(code, 0);
assert.deepEqual(answers.trim().split('\n').map((line) => JSON.parse(line).id).sort(), [1, null]);
await until('the end of an abandoned command', async () => !(await running(41237)));

await client.close();
await endAgent(agent);
console.log('all done');
