// The same query over the same objects, answered by the reference implementation.
//   node reference.js SCHEMA-FILE QUERY graphql|graphqlSync SECONDS    prints what was done, as JSON
//   node reference.js SCHEMA-FILE QUERY graphql                        prints the response
'use strict';
const fs = require('fs');
const { buildSchema, graphql, graphqlSync } = require('graphql');

const [schemaFile, source, way, seconds] = process.argv.slice(2);
const schema = buildSchema(fs.readFileSync(schemaFile, 'utf8'));
const port = 16654;
const numbered = (count, make) => Array.from({ length: count }, (_, index) => make(index));
const rootValue = {
  capabilities: {
    streaming: numbered(10, (i) => ({
      name: `Camera ${i}`,
      path: `/streams/camera-${i}/index.m3u8`,
      contentType: i % 2 === 0 ? 'VIDEO_ANGLE' : 'MOMENTS_DATA',
      port,
    })),
    projectsharing: numbered(100, (i) => ({
      name: `Project ${i}`,
      id: `8C0B6C9E-57B4-4E1B-9B3C-${100000 + i}`,
      port,
    })),
  },
};

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

async function main() {
  if (seconds === undefined) {
    console.log(JSON.stringify(await graphql({ schema, source, rootValue })));
    return;
  }
  await answersIn(Math.max(2000, seconds * 250)); // until its compiler has come to rest
  const began = performance.now();
  const answers = await answersIn(seconds * 1000);
  console.log(JSON.stringify({ answers, seconds: (performance.now() - began) / 1000 }));
}

main();
