// Answers as graphql_probe does, with the reference implementation: reference.js SCHEMA DATA
// With "tellsRules" also the "rules" that a query breaks. To {"list": "rules"} with the names of all, to
// {"introspect": OPTIONS} with the standard introspection query and its answer.
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

function brokenRules(document) {
  const isBroken = (rule) => graphql.validate(schema, document, [rule]).length > 0;
  return graphql.specifiedRules.filter(isBroken).map((rule) => rule.name);
}

function answer({query, variables, operationName, tellsRules}) {
  let document;
  try {
    document = graphql.parse(query);
  } catch (error) {
    return {stage: 'syntax', response: {errors: [error]}};
  }
  const errors = graphql.validate(schema, document);
  if (errors.length > 0) return {stage: 'validation', response: {errors}, rules: tellsRules && brokenRules(document)};
  const response = graphql.executeSync({
    schema, document, rootValue: root, variableValues: variables, operationName,
    fieldResolver: (source, args, context, info) => resolved(source[info.fieldName], args),
  });
  return {stage: 'execution', response};
}

function introspect(options) {
  const query = graphql.getIntrospectionQuery(options);
  return {query, response: graphql.executeSync({schema, document: graphql.parse(query)})};
}

function served(request) {
  if (request.list === 'rules') return {rules: graphql.specifiedRules.map((rule) => rule.name)};
  return request.introspect ? introspect(request.introspect) : answer(request);
}

readline.createInterface({input: process.stdin}).on('line', (line) => {
  process.stdout.write(JSON.stringify(served(JSON.parse(line))) + '\n');
});
