// The same query over the same objects, answered by the reference implementation.
//   node reference.js SCHEMA-FILE DATA-FILE QUERY answer                        prints the answer
//   node reference.js SCHEMA-FILE DATA-FILE QUERY graphql|graphqlSync SECONDS   prints what was done, as JSON
//   node reference.js SCHEMA-FILE DATA-FILE QUERY serve                         prints its port; answers messages on
//                                                                               WebSockets until its input ends
'use strict';
const fs = require('fs');
const { buildSchema, graphql, graphqlSync } = require('graphql');

const [schemaFile, dataFile, source, way, seconds] = process.argv.slice(2);
const schema = buildSchema(fs.readFileSync(schemaFile, 'utf8'));
const rootValue = JSON.parse(fs.readFileSync(dataFile, 'utf8'));

async function answersIn(milliseconds) {
  let answers = 0;
  let length = 0;
  const end = performance.now() + milliseconds;
  for (; performance.now() < end; answers += 1) {
    const result =
      way === 'graphqlSync' ? graphqlSync({ schema, source, rootValue }) : await graphql({ schema, source, rootValue });
    length += JSON.stringify(result).length;
  }
  if (length === 0) process.exit(1);
  return answers;
}

async function measure() {
  await answersIn(Math.max(2000, seconds * 250)); // until its compiler has come to rest
  const began = performance.now();
  const answers = await answersIn(seconds * 1000);
  console.log(JSON.stringify({ answers, seconds: (performance.now() - began) / 1000 }));
}

function serve() {
  const { WebSocketServer } = require('ws');
  const server = new WebSocketServer({ host: '127.0.0.1', port: 0, perMessageDeflate: false });
  server.on('connection', (socket) => {
    socket.on('error', () => {});
    socket.on('message', async (text) => {
      const { id, type, subject, message } = JSON.parse(text);
      const answer = JSON.stringify(await graphql({ schema, source: message, rootValue }));
      const reply = { id, type, subject, message: answer, userInfo: {}, timestamp: Date.now(), from: '', port: 0 };
      socket.send(JSON.stringify(reply));
    });
  });
  server.on('listening', () => console.log(server.address().port));
  process.stdin.on('end', () => process.exit(0)).resume();
}

if (way === 'serve') {
  serve();
} else if (way === 'answer') {
  console.log(JSON.stringify(graphqlSync({ schema, source, rootValue })));
} else {
  measure();
}
