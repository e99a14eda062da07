// The part of Cloudflare's Rules language that Vorlen writes, read into a tree that the
// edge evaluates per request: the fields http.host and http.request.uri.path, the
// operators eq and in {…}, the functions starts_with and ends_with, and, or, not and
// parentheses (https://developers.cloudflare.com/ruleset-engine/rules-language/). Any
// other expression is refused when it is written, so that a rule never passes unchecked.

const FIELDS = ['http.host', 'http.request.uri.path'];
const FUNCTIONS = ['starts_with', 'ends_with'];

export class UnsupportedExpression extends Error {}

function tokenize(text) {
  const tokens = [];
  const pattern = /\s*(?:("(?:[^"\\]|\\.)*")|([A-Za-z_][A-Za-z0-9_.]*)|([(){},]))/y;
  let at = 0;
  while (at < text.length) {
    if (/^\s*$/.test(text.slice(at))) break;
    pattern.lastIndex = at;
    const found = pattern.exec(text);
    if (!found) throw new UnsupportedExpression(`unexpected text at ${at}: ${text.slice(at, at + 20)}`);
    if (found[1] !== undefined) tokens.push({ kind: 'string', value: found[1].slice(1, -1).replace(/\\(.)/g, '$1') });
    else if (found[2] !== undefined) tokens.push({ kind: 'word', value: found[2] });
    else tokens.push({ kind: 'punct', value: found[3] });
    at = pattern.lastIndex;
  }
  return tokens;
}

class Parser {
  constructor(text) {
    this.tokens = tokenize(text);
    this.at = 0;
  }

  peek(value) {
    const token = this.tokens[this.at];
    return token && (value === undefined || token.value === value) ? token : null;
  }

  take(value) {
    const token = this.tokens[this.at];
    if (!token || (value !== undefined && token.value !== value)) {
      throw new UnsupportedExpression(`expected ${value ?? 'more'} but found ${token ? token.value : 'the end'}`);
    }
    this.at += 1;
    return token;
  }

  string() {
    const token = this.take();
    if (token.kind !== 'string') throw new UnsupportedExpression(`expected a quoted string but found ${token.value}`);
    return token.value;
  }

  field() {
    const token = this.take();
    if (!FIELDS.includes(token.value)) throw new UnsupportedExpression(`the field ${token.value} is not supported`);
    return token.value;
  }

  whole() {
    const tree = this.or();
    if (this.at < this.tokens.length) throw new UnsupportedExpression(`unexpected ${this.tokens[this.at].value}`);
    return tree;
  }

  // A left-associative chain of one operator over what `next` reads.
  chain(operator, next) {
    let tree = next();
    while (this.peek(operator)) {
      this.take();
      tree = { op: operator, left: tree, right: next() };
    }
    return tree;
  }

  or() {
    return this.chain('or', () => this.and());
  }

  and() {
    return this.chain('and', () => this.unary());
  }

  unary() {
    if (this.peek('not')) {
      this.take();
      return { op: 'not', operand: this.unary() };
    }
    if (this.peek('(')) {
      this.take();
      const tree = this.or();
      this.take(')');
      return tree;
    }
    const word = this.peek();
    if (word && FUNCTIONS.includes(word.value)) {
      this.take();
      this.take('(');
      const field = this.field();
      this.take(',');
      const value = this.string();
      this.take(')');
      return { op: word.value, field, value };
    }
    const field = this.field();
    const operator = this.take().value;
    if (operator === 'eq') return { op: 'eq', field, value: this.string() };
    if (operator === 'in') {
      this.take('{');
      const values = [];
      while (!this.peek('}')) values.push(this.string());
      this.take('}');
      return { op: 'in', field, values };
    }
    throw new UnsupportedExpression(`the operator ${operator} is not supported`);
  }
}

// The expression's tree; throws UnsupportedExpression for anything outside the subset.
export function parseExpression(text) {
  return new Parser(String(text)).whole();
}

// Whether the request's fields ({"http.host", "http.request.uri.path"}) match the tree.
export function matches(tree, fields) {
  switch (tree.op) {
    case 'or': return matches(tree.left, fields) || matches(tree.right, fields);
    case 'and': return matches(tree.left, fields) && matches(tree.right, fields);
    case 'not': return !matches(tree.operand, fields);
    case 'eq': return fields[tree.field] === tree.value;
    case 'in': return tree.values.includes(fields[tree.field]);
    case 'starts_with': return fields[tree.field].startsWith(tree.value);
    case 'ends_with': return fields[tree.field].endsWith(tree.value);
    default: throw new Error(`no evaluation for ${tree.op}`);
  }
}
