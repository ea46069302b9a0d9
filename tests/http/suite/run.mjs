// Runs http-cache-tests against a cache in front of the suite's own server and prints, by group, how
// many of the decided tests pass, beside the results of others that the suite ships.
//   node run.mjs SUITE-DIRECTORY CACHE-URL
import fs from 'node:fs'
import path from 'node:path'
import { pathToFileURL } from 'node:url'

const [directory, base] = process.argv.slice(2)
const load = (name) => import(pathToFileURL(path.resolve(directory, name)))
const { runTests, getResults } = await load('client/runner.mjs')
const { default: suites } = await load('tests/index.mjs')
const { default: surrogates } = await load('tests/surrogate-control.mjs')
const { default: fetch } = await load('../node-fetch/lib/index.mjs')
const others = ['chrome', 'firefox', 'safari', 'squid', 'nginx']

// Required tests that are not for this cache, and why.
const shared = 'for a cache that several users share'
const unpassable = 'wants the counter of a server that has closed the connection; no published result passes'
const reasons = {
  'freshness-s-maxage-shared': shared,
  'freshness-max-age-s-maxage-shared-longer': shared,
  'freshness-max-age-s-maxage-shared-longer-reversed': shared,
  'freshness-max-age-s-maxage-shared-longer-multiple': shared,
  'cc-resp-private-shared': shared,
  'stale-close-proxy-revalidate': shared,
  'stale-close-s-maxage=2': shared,
  'stale-close-must-revalidate': unpassable,
  'stale-close-no-cache': unpassable,
  'age-parse-prefix': 'wants "Age: 0,7200" reused; by its name, and by its sisters with "0, 0", a list is stale',
  'headers-store-Transfer-Encoding': 'libcurl takes no answer in a transfer coding that it does not know'
}

const groups = suites.filter(suite => suite.id !== surrogates.id)
await runTests(groups, fetch, false, base)
const ours = getResults()
const published = others.map(name =>
  JSON.parse(fs.readFileSync(path.join(directory, 'results', `${name}.json`))))

const tests = new Map(groups.flatMap(group => group.tests).map(test => [test.id, test]))
const passes = (results, id) => results[id] === true && (tests.get(id).depends_on ?? []).every(other => passes(results, other))
// Without an answer: not run, its preparation failed, or a test that it builds on did.
const isDecided = (results, test) => results[test.id] !== undefined && results[test.id][0] !== 'Setup' &&
  (test.depends_on ?? []).every(other => passes(results, other))
const kindOf = (test) => test.kind ?? 'required'
function count (results, list) {
  const decided = list.filter(test => isDecided(results, test))
  return `${decided.filter(test => results[test.id] === true).length}/${decided.length}`
}
const ofKind = (list, kind) => list.filter(test => !test.browser_only && kindOf(test) === kind)

for (const kind of ['required', 'optimal', 'check']) {
  const rows = groups.map(group => [group.name, ofKind(group.tests, kind)]).filter(([, list]) => list.length)
  rows.push(['all', rows.flatMap(([, list]) => list)])
  console.log(`\n| ${kind} | here | ${others.join(' | ')} |\n|---|${'---|'.repeat(others.length + 1)}`)
  for (const [name, list] of rows) {
    console.log(`| ${name} | ${[ours, ...published].map(results => count(results, list)).join(' | ')} |`)
  }
}

const required = groups.flatMap(group => ofKind(group.tests, 'required'))
const failed = required.filter(test => ours[test.id] !== true)
console.log('\nRequired tests that are not passed:')
for (const { id } of failed) console.log(`- ${id}: ${reasons[id] ?? `FAILED, ${ours[id]?.[1]}`}`)
process.exit(failed.every(({ id }) => reasons[id]) ? 0 : 1)
