// The decision about freshness beside that of http-cache-semantics, over random headers. Where the
// two differ, the rules below change the case so that one known reason to differ is gone; then they
// must agree. A difference that stays is a failure.
//   node compare.mjs ORACLE CASES
import { execFileSync } from 'node:child_process'
import CachePolicy from 'http-cache-semantics'

const [oracle, count] = [process.argv[2], Number(process.argv[3])]
const answered = 1767268800 // seconds since 1970, when each answer came
let seed = Number(process.env.SEED ?? 1)
const random = (n) => {
  seed = (Math.imul(seed, 1103515245) + 12345) >>> 0
  return Math.floor((seed / 2 ** 32) * n)
}
const oneOf = (list) => list[random(list.length)]
const maybe = (share, value) => (random(100) < share ? value() : undefined)
const date = (offset) => new Date((answered + offset) * 1000).toUTCString()
const seconds = () => oneOf([0, 1, 10, 59, 60, 61, 3600, 86400, 1e9])

const directive = () => oneOf([
  () => `max-age=${seconds()}`, () => `max-age=${seconds()}`, () => `max-age="${seconds()}"`,
  () => `Max-Age=${seconds()}`, () => 'max-age=1x', () => 'max-age=-5', () => 'public', () => 'private',
  () => `s-maxage=${seconds()}`, () => 'no-cache', () => 'no-store', () => 'must-revalidate',
  () => 'proxy-revalidate', () => 'immutable', () => 'must-understand', () => 'no-cache="set-cookie"',
  () => `stale-while-revalidate=${seconds()}`, () => `stale-if-error=${seconds()}`
])()
const asked = () => oneOf([
  () => `max-age=${seconds()}`, () => `min-fresh=${seconds()}`, () => `max-stale=${seconds()}`,
  () => 'max-stale', () => 'no-cache', () => 'no-store'
])()
const dateText = (offset) => oneOf([date(offset), date(offset), date(offset),
  date(offset).replace('GMT', 'UTC'), '0', date(offset).replace(', ', ' ')])

function randomCase () {
  const answer = {
    date: maybe(70, () => date(oneOf([0, 0, 0, -5, -100, 50]))),
    age: maybe(25, () => oneOf(['0', '30', '3000', '1.5', 'old', '0, 30'])),
    'cache-control': maybe(75, () => Array.from({ length: 1 + random(3) }, directive).join(', ')),
    expires: maybe(35, () => dateText(oneOf([-10, 0, 60, 3600, 1e8]))),
    'last-modified': maybe(40, () => dateText(oneOf([-600, -86400, -1e8, 100]))),
    pragma: maybe(5, () => 'no-cache')
  }
  const request = {
    'cache-control': maybe(35, asked), pragma: maybe(5, () => 'no-cache'),
    authorization: maybe(10, () => 'Basic eA==')
  }
  const status = oneOf([200, 200, 200, 203, 204, 206, 301, 302, 404, 410, 418, 500, 501, 503])
  return { passed: oneOf([0, 1, 10, 59, 60, 61, 1000, 86400, 1e7]), status, answer, request }
}

const lines = (mark, headers) => Object.entries(headers)
  .filter(([, value]) => value !== undefined).map(([name, value]) => `${mark}${name}: ${value}\n`).join('')
function decideOurs (cases) {
  const input = cases.map(c =>
    `${c.passed} ${c.status} ${answered}\n${lines('<', c.answer)}${lines('>', c.request)}\n`).join('')
  return execFileSync(oracle, { input, maxBuffer: 2 ** 30 }).toString().trim().split('\n')
}
function decideTheirs (c) {
  const given = (headers) => JSON.parse(JSON.stringify(headers))
  class At extends CachePolicy {
    now () { return (this.later ? answered + c.passed : answered) * 1000 }
  }
  const request = { method: 'GET', url: '/', headers: given(c.request) }
  const policy = new At(request, { status: c.status, headers: given(c.answer) }, { shared: false })
  if (!policy.storable()) return 'unstored'
  policy.later = true
  const { response, revalidation } = policy.evaluateRequest(request)
  if (!response) return 'ask'
  if (revalidation) return 'meanwhile'
  return policy.stale() ? 'accepted' : 'fresh'
}

const without = (name) => (c) => { c.answer[name] = undefined }
const inControl = (pattern, text) => (c) => {
  const old = c.answer['cache-control']
  const parts = old?.split(', ').map(part => part.replace(pattern, text)).filter(part => part)
  c.answer['cache-control'] = parts?.length ? parts.join(', ') : undefined
}
const strict = /^[A-Z][a-z]{2}, \d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d GMT$/
const rules = {
  'they take no account of Date in the age (RFC 9111, 4.2.3)': c => { c.answer.date &&= date(0) },
  'they read "1.5" and a list as an Age, and ignore one that is no number; here it means stale':
    c => { if (!/^\d+$/.test(c.answer.age ?? '0')) c.answer.age = undefined },
  'they take dates of any form': c => {
    for (const name of ['expires', 'last-modified']) {
      if (c.answer[name] && !strict.test(c.answer[name])) c.answer[name] = name === 'expires' ? date(-10) : undefined
    }
  },
  'they know directives in small letters alone': inControl(/^Max-Age/, 'max-age'),
  'of several max-age they take the last; here different ones mean stale': c => {
    const ages = c.answer['cache-control']?.match(/max-age=[^,]*/gi)
    if (ages?.length > 1) inControl(/^max-age=.*/i, '')(c)
    if (ages?.length > 1) c.answer['cache-control'] = [c.answer['cache-control'], ages[0]].filter(a => a).join(', ')
  },
  'they read a number from the front of "1x"; here it means stale': inControl(/^max-age=(1x|-5)$/, 'max-age=0'),
  'they ask each time after must-revalidate, also while fresh': inControl(/^must-revalidate$/, ''),
  'they give an immutable answer a day at least': inControl(/^immutable$/, ''),
  'they take no-cache="names" as no-cache': inControl(/^no-cache=.*/, ''),
  'they do not store a 302 because of private': inControl(/^private$/, ''),
  'they do not know must-understand': inControl(/^must-understand$/, ''),
  'they do not store 418, 500 and 503; here a lifetime is enough': c => { if ([418, 500, 503].includes(c.status)) c.status = 206 },
  'their guess from Last-Modified has no upper bound, and serves any status': c => {
    if (c.answer['last-modified']) c.answer['last-modified'] = undefined
  },
  'here an answer to Authorization needs public, must-revalidate or s-maxage': c => { c.request.authorization = undefined },
  'at the very second at which max-stale or stale-while-revalidate ends': c => { c.passed += 3 },
  'they accept a no-cache answer stale where the request has max-stale': c => {
    const isUnfit = c.answer.pragma || /no-cache/.test(c.answer['cache-control'] ?? '')
    if (isUnfit && /max-stale/.test(c.request['cache-control'] ?? '')) c.request['cache-control'] = undefined
  },
  'they ask when Pragma stands beside Cache-Control': c => {
    if (c.request['cache-control']) c.request.pragma = undefined
  },
  'they note max-stale only where stale-while-revalidate does not serve': inControl(/^stale-while-revalidate=.*/, '')
}

const cases = Array.from({ length: count }, randomCase)
const differing = (list) => {
  const ours = decideOurs(list)
  return list.filter((c, i) => (c.verdict = [ours[i], decideTheirs(c)])[0] !== c.verdict[1])
}
let open = differing(cases)
console.log(`${count} cases, ${count - open.length} decided alike`)
const changed = (c, names) => {
  const copy = structuredClone({ ...c, origin: undefined })
  names.forEach(name => rules[name](copy))
  copy.origin = c
  return copy
}
for (const name of Object.keys(rules)) {
  const still = new Set(differing(open.map(c => changed(c, [name]))).map(c => c.origin))
  console.log(`${String(open.length - still.size).padStart(8)}  ${name}`)
  open = open.filter(c => still.has(c))
}
const several = open.length
open = differing(open.map(c => changed(c, Object.keys(rules)))).map(c => c.origin)
console.log(`${String(several - open.length).padStart(8)}  several of these`)
console.log(`${String(open.length).padStart(8)}  unexplained`)
open.slice(0, 10).forEach(c => console.log(JSON.stringify({ ...c, origin: undefined })))
process.exit(open.length ? 1 : 0)
