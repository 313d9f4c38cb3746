// Answers as graphql_probe does, with the reference implementation: reference.js SCHEMA DATA
'use strict';

const fs = require('fs');
const readline = require('readline');
const graphql = require('graphql');

const [schemaFile, dataFile] = process.argv.slice(2);
const schema = graphql.buildSchema(fs.readFileSync(schemaFile, 'utf8'));
const root = JSON.parse(fs.readFileSync(dataFile, 'utf8'));

// What data says about its values: see graphql_probe.cpp.
function resolved(value, args) {
  if (value === null || typeof value !== 'object') return value;
  if ('$throw' in value) throw new Error(value.$throw);
  if ('$echo' in value) return JSON.stringify({$arguments: args});
  if ('$argument' in value) return args[value.$argument];
  return value;
}

function answer({query, variables, operationName}) {
  let document;
  try {
    document = graphql.parse(query);
  } catch (error) {
    return {stage: 'syntax', response: {errors: [error]}};
  }
  const errors = graphql.validate(schema, document);
  if (errors.length > 0) return {stage: 'validation', response: {errors}};
  const response = graphql.executeSync({
    schema, document, rootValue: root, variableValues: variables, operationName,
    fieldResolver: (source, args, context, info) => resolved(source[info.fieldName], args),
  });
  return {stage: 'execution', response};
}

readline.createInterface({input: process.stdin}).on('line', (line) => {
  const request = JSON.parse(line);
  const result = request.introspect
      ? {response: graphql.executeSync({schema, document: graphql.parse(graphql.getIntrospectionQuery(request.introspect))}),
         query: graphql.getIntrospectionQuery(request.introspect)}
      : answer(request);
  process.stdout.write(JSON.stringify(result) + '\n');
});
