/** Starts the programs under test, and ends them. */
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';

const { VANTOR, VANTOR_SERVER } = process.env;

/** A directory for one suite of tests. */
export function makeDirectory() {
  const path = mkdtempSync(join(tmpdir(), 'vantor-view-'));
  return {
    path,
    /** Writes a document into a file. */
    write(name, document) {
      writeFileSync(join(path, name), JSON.stringify(document));
      return join(path, name);
    },
    remove: () => rmSync(path, { recursive: true, force: true }),
  };
}

/** A program, and what it prints. */
class Program {
  constructor(path, args, directory) {
    this.process = spawn(path, args, { cwd: directory, stdio: ['ignore', 'pipe', 'pipe'] });
    this.text = '';
    this.process.stderr.on('data', (data) => { this.text += data; });
    this.ended = new Promise((resolve) => { this.process.on('exit', (code, signal) => resolve(code ?? signal)); });
  }

  /** Waits for a line of the output, or of the messages, that matches; returns the match. */
  line(stream, pattern) {
    return new Promise((resolve, reject) => {
      createInterface(this.process[stream]).on('line', (line) => pattern.test(line) && resolve(pattern.exec(line)));
      this.ended.then((code) => reject(new Error(`ended with ${code}: ${this.text}`)));
    });
  }

  /** Asks the program to end, and returns its exit code. */
  end(signal = 'SIGINT') {
    this.process.kill(signal);
    return this.ended;
  }
}

/** Starts `vantor view`; returns it with the address that it prints. */
export async function startView(directory, args) {
  const view = new Program(VANTOR, ['view', '--no-browser', '--listen', '127.0.0.1:0', ...args], directory.path);
  [view.url] = await view.line('stdout', /^http:\/\/\S+\/\?token=\w+$/);
  return view;
}

/** Starts a server on a port; 0 for any. */
export async function startServer(directory, port, args = []) {
  const server = new Program(VANTOR_SERVER, ['--tcp', String(port), '--log-level', 'INFO', ...args], directory.path);
  const [, found] = await server.line('stdout', /:(\d+)\s*$/);
  server.port = Number(found);
  return server;
}

/** Runs a command of `vantor` to its end, and returns what it prints. */
export function run(directory, args) {
  return execFileSync(VANTOR, args, { cwd: directory.path, encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}
