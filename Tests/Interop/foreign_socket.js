// A WebSocket peer made of Node's `ws`; the same commands and events as foreign_socket.py, where they are told.
'use strict';
const http = require('http');
const readline = require('readline');
const { WebSocket, WebSocketServer } = require('ws');

const anySize = 1 << 30;
const sockets = new Map();
const turns = new Map();

const say = (event, members) => process.stdout.write(`${JSON.stringify({ event, ...members })}\n`);

function use(name, socket, members) {
  sockets.set(name, socket);
  turns.set(name, Promise.resolve());
  const extensions = socket.extensions.split(',').map((text) => text.trim()).filter((text) => text !== '');
  say('open', { socket: name, extensions, ...members });
  socket.on('message', (data) => say('text', { socket: name, text: data.toString() }));
  socket.on('error', () => {});  // "closed" tells
  socket.on('close', (code, reason) => say('closed', { socket: name, code, reason: reason.toString() }));
}

function dial({ socket: name, url, origin, deflate = false }) {
  const socket = new WebSocket(url, { origin, perMessageDeflate: deflate, maxPayload: anySize });
  let refused = false;
  const fail = (error) => { if (!refused) say('failed', { socket: name, error: String(error) }); };
  socket.on('error', fail);
  socket.on('unexpected-response', (request, response) => {
    refused = true;
    say('refused', { socket: name, status: response.statusCode });
    request.destroy();
  });
  // Before the first message can be told.
  socket.on('open', () => { socket.off('error', fail); use(name, socket, {}); });
}

function serve({ server: name, hostName, name: serviceName, upgrade }) {
  const acceptor = new WebSocketServer({ noServer: true, perMessageDeflate: true, maxPayload: anySize });
  let count = 0;
  const listener = http.createServer((request, response) => {
    const { port } = listener.address();
    response.setHeader('Content-Type', 'application/json');
    response.end(JSON.stringify({ serviceId: `${hostName}:${port}`, hostName, port, name: serviceName }));
  });
  listener.on('upgrade', (request, stream, head) => {
    stream.on('error', () => {});
    if (upgrade === 'never') return;
    if (upgrade !== undefined) {
      stream.end(`HTTP/1.1 ${upgrade} ${http.STATUS_CODES[upgrade]}\r\nContent-Length: 2\r\n\r\nno`);
      return;
    }
    acceptor.handleUpgrade(request, stream, head, (socket) => {
      count += 1;
      use(`${name}/${count}`, socket, { server: name, path: request.url });
    });
  });
  listener.listen(0, '127.0.0.1', () => say('serving', { server: name, port: listener.address().port }));
}

// Settles once the bytes are with the system, or the connection is over.
const handedOver = (socket, data, options = {}) => new Promise((done) => { socket.send(data, options, done); });

async function send({ socket: name, text, count = 1 }) {
  const socket = sockets.get(name);
  const together = 100;
  for (let number = 0; number < count; number += 1) {
    const handed = handedOver(socket, text.replaceAll('{n}', String(number)));
    if (number % together === together - 1 || number === count - 1) await handed;
  }
  say('sent', { socket: name, pongs: 0 });
}

async function sendSize({ socket: name, size, binary = false }) {
  await handedOver(sockets.get(name), binary ? Buffer.alloc(size) : 'x'.repeat(size));
  say('sent', { socket: name, pongs: 0 });
}

async function fragments({ socket: name, texts }) {
  const socket = sockets.get(name);
  let pongs = 0;
  const all = new Promise((done) => {
    socket.on('pong', () => { pongs += 1; if (pongs === texts.length) done(); });
  });
  for (const text of texts) {
    socket.send(text, { fin: false });
    socket.ping();
  }
  socket.send('', { fin: true });
  await Promise.race([all, new Promise((done) => { socket.on('close', done); })]);
  say('sent', { socket: name, pongs });
}

const close = async ({ socket: name, code, reason }) => sockets.get(name).close(code, reason);

const sending = { send, sendSize, fragments, close };
const immediate = {
  dial,
  serve,
  // `ws` has no public way to end only its own half of the connection.
  halfClose: ({ socket }) => sockets.get(socket)._socket.end(),
  pause: ({ socket }) => sockets.get(socket).pause(),
  resume: ({ socket }) => sockets.get(socket).resume(),
};

readline.createInterface({ input: process.stdin })
  .on('line', (line) => {
    const command = JSON.parse(line);
    if (command.do in immediate) {
      immediate[command.do](command);
      return;
    }
    // What is sent on one socket keeps its order.
    turns.set(command.socket, turns.get(command.socket).then(() => sending[command.do](command)));
  })
  .on('close', () => process.exit(0));
