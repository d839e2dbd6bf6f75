// Template engines of Node.js: node.mjs ENGINE MODULES DATA TEMPLATES [letters OUTPUT]. Answers the commands that Driver.h
// describes. MODULES is the folder in which npm has installed the engines.

import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { createInterface } from 'node:readline';
import { pathToFileURL } from 'node:url';
import v8 from 'node:v8';
import vm from 'node:vm';

const [engine, modules, data, templates, , output] = process.argv.slice(2);
const require = createRequire(`${modules}/index.js`);
const load = async (name) => {
  const module = await import(pathToFileURL(require.resolve(name)));
  return module.default ?? module;
};

const boundOf = (better) => (products) => better(...products.map((product) => product.price.amount));
const least = boundOf(Math.min);
const greatest = boundOf(Math.max);

// Each answers what its templates are called, and how a text becomes a function from data to a text.
const engines = {
  async dot() {
    const dot = await load('dot');
    const settings = { ...dot.templateSettings, strip: false };
    return { extension: 'dot', compile: (text) => dot.template(text, settings) };
  },
  async eta() {
    const { Eta } = await load('eta');
    const eta = new Eta({ autoEscape: false, autoTrim: false });
    return {
      extension: 'eta',
      compile(text) {
        const compiled = eta.compile(text);
        return (values) => eta.render(compiled, values);
      },
    };
  },
  async ejs() {
    const ejs = await load('ejs');
    return { extension: 'ejs', compile: (text) => ejs.compile(text, { _with: false, strict: true }) };
  },
  async nunjucks() {
    const nunjucks = await load('nunjucks');
    const environment = new nunjucks.Environment(null, { autoescape: false });
    environment.addGlobal('least', least).addGlobal('greatest', greatest);
    return {
      extension: 'njk',
      compile(text) {
        const compiled = new nunjucks.Template(text, environment, 'page', true);
        return (values) => compiled.render(values);
      },
    };
  },
  async handlebars() {
    const handlebars = (await load('handlebars')).create();
    handlebars.registerHelper({
      least,
      greatest,
      add: (left, right) => left + right,
      multiply: (left, right) => left * right,
      more: (left, right) => left > right,
      less: (left, right) => left < right,
      equal: (left, right) => left === right,
      reduced: (sku) => /^(SALE|LAST)-\d+$/.test(sku),
      inCurrency: (amount, currency) => `${amount} ${currency}`,
      join: (...texts) => texts.slice(0, -1).join(''),
    });
    return {
      extension: 'hbs',
      // compile() waits for the first rendering.
      compile: (text) => handlebars.template(vm.runInThisContext(`(${handlebars.precompile(text, { noEscape: true })})`)),
    };
  },
};

const { extension, compile } = await engines[engine]();
const read = (path) => readFileSync(path, 'utf8');
const pageOf = (name) => compile(read(`${templates}/${name.split('-')[0]}.${extension}`));
const dataOf = (name) => JSON.parse(read(`${data}/${name}.json`));

// V8 makes one text of many pieces when it is first read, which is part of making it.
const flatten = (text) => {
  text.charCodeAt(text.length - 1);
  Number(text);
  return text;
};

function prepare(name) {
  if (name.startsWith('compile-')) {
    const text = read(`${data}/${engine}-${name}.txt`);
    // Another text each time: V8 keeps what it has compiled of one.
    let times = 0;
    return { text, run: () => compile(`${text}${(times += 1)}`) };
  }
  const page = pageOf(name);
  const values = dataOf(name);
  return { run: () => flatten(page(values)) };
}

function measure({ run }, count) {
  const processorStart = process.cpuUsage();
  const start = process.hrtime.bigint();
  for (let done = 0; done < count; done += 1) run();
  const wall = Number(process.hrtime.bigint() - start) / 1e9;
  const { user, system } = process.cpuUsage(processorStart);
  return `${wall / count} ${(user + system) / 1e6 / count}`;
}

function memory({ text, run }) {
  v8.setFlagsFromString('--expose-gc');
  const collect = vm.runInNewContext('gc');
  run();
  collect();
  const before = process.memoryUsage().heapUsed;
  const compiled = run();
  collect();
  const size = process.memoryUsage().heapUsed - before;
  if (compiled === undefined) throw new Error('nothing was compiled');
  return String(size / text.length);
}

let current = { name: '' };

function answer(line) {
  const [command, name, argument] = line.split(' ');
  if (name !== current.name) {
    current = { name: '' };
    current = { name, workload: prepare(name) };
  }
  if (command === 'run') return measure(current.workload, Number(argument));
  if (command === 'memory') return memory(current.workload);
  writeFileSync(argument, current.workload.run());
  return 'done';
}

if (output !== undefined) {
  writeFileSync(output, pageOf('letters')(dataOf('letters')));
} else {
  for await (const line of createInterface({ input: process.stdin })) {
    let text;
    try {
      text = answer(line);
    } catch (error) {
      text = `error ${String(error.message).replaceAll('\n', ' ')}`;
    }
    process.stdout.write(`${text}\n`);
  }
}
