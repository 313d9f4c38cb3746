#!/usr/bin/env node
// A node driven from JavaScript, with nothing but Node's own modules: `ferrox run --json` is a child process that is
// told one JSON object a line and tells one a line.
//
//   drive.js FERROX [OPTION...]      the command, and options for its `run`
//
// It answers the first peer that says "Hello", lists what the peers offer, and ends.
'use strict';

const { spawn } = require('child_process');
const { EventEmitter, once } = require('events');
const readline = require('readline');

class Node extends EventEmitter {
  constructor(command, ...options) {
    super();
    this.results = new Map();
    this.asked = 0;
    this.process = spawn(command, ['run', '--json', ...options], { stdio: ['pipe', 'pipe', 'inherit'] });
    this.process.on('error', (error) => console.error(error.message)); // it could not be started
    this.process.on('close', (status) => this.emit('end', status));
    this.process.stdin.on('error', () => {}); // it has ended, which is told by itself
    readline.createInterface({ input: this.process.stdout }).on('line', (line) => this.take(JSON.parse(line)));
  }

  take(event) {
    const answer = event.event === 'result' && this.results.get(event.ref);
    if (!answer) return this.emit(event.event, event);
    this.results.delete(event.ref);
    return event.ok ? answer.resolve(event) : answer.reject(new Error(`${event.cmd}: ${event.error}`));
  }

  /** Sends a command; its result is promised. */
  ask(cmd, members = {}) {
    const ref = ++this.asked;
    this.process.stdin.write(`${JSON.stringify({ cmd, ref, ...members })}\n`);
    return new Promise((resolve, reject) => this.results.set(ref, { resolve, reject }));
  }
}

async function main(command, ...options) {
  const node = new Node(command, '--observe', 'Hello', ...options);
  const ended = new Promise((resolve) => node.on('end', resolve));
  ended.then((status) => process.exit(status >= 0 ? status : 1));
  node.on('started', (event) => console.log(`runs on port ${event.port}`));
  node.on('connected', (event) => console.log(`connected to ${event.userInfo.frxId}`));
  // Who posts reaches those that it is connected to.
  const [[hello]] = await Promise.all([once(node, 'notification'), once(node, 'connected')]);
  console.log(`hello from ${hello.sender}: ${JSON.stringify(hello.userInfo.text)}`);
  await node.ask('post', { name: 'Hello', userInfo: { text: 'Hello from JavaScript' } });
  const { result } = await node.ask('list');
  for (const [capability, peers] of Object.entries(result)) {
    for (const offer of Object.values(peers).flat()) {
      console.log(`${capability}: ${JSON.stringify(offer.name)} ${offer.url}`);
    }
  }
  await node.ask('quit');
}

if (process.argv.length < 3) {
  console.error('usage: drive.js FERROX [OPTION...]');
  process.exit(2);
}
main(...process.argv.slice(2)).catch((error) => {
  console.error(error.message);
  process.exit(1);
});
