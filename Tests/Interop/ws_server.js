// A WebSocket server of the `ws` package whose paths each behave in one way.
const { WebSocketServer } = require('ws');

const server = new WebSocketServer({ host: '127.0.0.1', port: 0, perMessageDeflate: { threshold: 0 } });

const told = (socket) => socket.on('close', (code, reason) => console.log(`ended ${code} ${reason}`.trimEnd()));

const paths = {
  '/echo': (socket) => socket.on('message', (data) => socket.send(data.toString())),
  '/fragments': (socket) => {
    socket.send('one ', { fin: false });
    socket.send('two ', { fin: false });
    socket.ping('between');
    socket.send('thr\u00e9e', { fin: true });
  },
  '/ping': (socket) => {
    socket.on('pong', (data) => socket.send(data.toString() === 'are you there' ? 'pong received' : 'wrong pong'));
    socket.ping('are you there');
  },
  '/close': (socket) => socket.close(4321, 'enough \u2713'),
  '/binary': (socket) => { told(socket); socket.send(Buffer.from([0, 1])); },
  '/oversize': (socket) => { told(socket); socket.send('x'.repeat(2 << 20)); },
  '/told': told,
  '/extensions': (socket) => socket.send(socket.extensions === '' ? '[]' : socket.extensions),
  '/count': (socket) => {
    let count = 0;
    socket.on('message', (data) => {
      if (data.toString() !== `burst ${count}`) return socket.close(4000, `out of order at ${count}`);
      count += 1;
      if (count === 1000) socket.send('all there');
    });
  },
  '/cut': (socket) => { socket.send('now'); setTimeout(() => socket.terminate(), 10); },
};

server.on('connection', (socket, request) => {
  socket.on('error', () => {});
  (paths[request.url] || ((other) => other.close(4404, 'no such path')))(socket);
});
server.on('listening', () => console.log(server.address().port));
