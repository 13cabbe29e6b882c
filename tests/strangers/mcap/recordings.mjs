// Usage: recordings.mjs VEXO VEXO_SIM KILLS [MS]
// Records a simulated controller with variables of every type; reads the files as others do. Kills
// so many recorders at any moment: their files open like any other, and lack no more than the last
// MS milliseconds (1000, as the machine may be busy).
import assert from "node:assert/strict";
import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { existsSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { setTimeout as sleep } from "node:timers/promises";
import { promisify } from "node:util";

import { readRecording, streamRecording } from "./reader.mjs";

const [vexo, simulator, kills, limit = "1000"] = process.argv.slice(2);
const folder = mkdtempSync(join(tmpdir(), "recordings-"));
const address = `127.${(process.pid >> 8) & 255}.${process.pid & 255}.77`;
const file = (name) => join(folder, name);
const record = (name, ...more) => [
  "record", "--host", address, "--timeout", "60", "--output", file(name), ...more,
];

// A variable of each type shows its id, repeated over its width.
const base = 0x41424320;
const typeNames = [
  "char", "bool", "u8", "u16", "u32", "u64", "i8", "i16", "i32", "i64", "f32", "f64",
  "f64x3", "f64x6", "f32x3", "i32x6", "u32x6", "f32x6", "text",
];
const outputs = typeNames.map((name, type) => ({ name: `a ${name}`, id: base + type, type }));

function expected(type) {
  const bytes = new Uint8Array(255).map((_, i) => (i % 4 === 0 ? 0x20 + type : [0, 67, 66, 65][i % 4]));
  const view = new DataView(bytes.buffer);
  const many = (Type, count) => new Type(bytes.buffer.slice(0, Type.BYTES_PER_ELEMENT * count));
  return [
    bytes[0], true, bytes[0], view.getUint16(0, true), view.getUint32(0, true),
    view.getBigUint64(0, true), view.getInt8(0), view.getInt16(0, true), view.getInt32(0, true),
    view.getBigInt64(0, true), view.getFloat32(0, true), view.getFloat64(0, true),
    many(Float64Array, 3), many(Float64Array, 6), many(Float32Array, 3), many(Int32Array, 6),
    many(Uint32Array, 6), many(Float32Array, 6), new TextDecoder().decode(bytes),
  ][type];
}

async function wholeRecording() {
  const split = ["--all", "--duration", "2.5", "--split", "1", "--json"];
  const { stdout } = await promisify(execFile)(vexo, record("whole.mcap", ...split));
  const summary = JSON.parse(stdout);
  assert.equal(summary.lost, 0);
  assert.equal(summary.files, 3);
  let total = 0;
  let sequence;
  for (const name of ["whole.mcap", "whole-2.mcap", "whole-3.mcap"]) {
    const found = await readRecording(file(name));
    total += found.messages.length;
    assert.equal(await streamRecording(file(name)), found.messages.length);
    assert.equal(found.channels[0].topic, `/${address}`);
    assert.deepEqual(found.attachments, ["catalogue.json"]);
    assert.equal(found.vexo.get("controller"), address);
    for (const message of found.messages) {
      assert.equal(message.sequence, (sequence ?? message.sequence - 1) + 1);
      sequence = message.sequence;
    }
    for (const values of [found.messages[0].values, found.messages.at(-1).values]) {
      typeNames.forEach((name, type) => {
        assert.deepEqual(values[`a_${name}`], expected(type), name);
      });
    }
    // As far as the controller's time is known, packages were sent before they arrived.
    assert.ok(found.messages.some((message) => message.publishTime < message.logTime));
  }
  assert.equal(total, summary.packages);
}

// Nothing that the recorder says or leaves behind tells that it will be killed.
async function killedRecording(number) {
  const name = `killed-${number}.mcap`;
  const recorder = spawn(vexo, record(name, "--all"), { stdio: "ignore" });
  for (let waited = 0; !existsSync(file(name)); ++waited) {
    assert.ok(waited < 6000, "the file does not come about");
    await sleep(10);
  }
  await sleep(500 + Math.random() * 1000);
  const at = BigInt(Date.now()) * 1_000_000n;
  recorder.kill("SIGKILL");
  await once(recorder, "exit");
  const found = await readRecording(file(name));
  const lacks = Number(at - found.messages.at(-1).logTime) / 1e6;
  assert.ok(lacks < Number(limit), `${name} lacks the last ${lacks} ms`);
  rmSync(file(name));
  return lacks;
}

const controller = spawn(
  simulator,
  ["--address", address, "--catalogue", file("catalogue.json")],
  (writeFileSync(
    file("catalogue.json"),
    JSON.stringify({
      outputs: [...outputs, { name: "package_counter", id: 1, type: 4 },
        { name: "controller_time", id: 2, type: 11 }],
      inputs: [{ name: "unused", id: 3, type: 2 }],
      methods: [{ name: "servoJ", id: 4 }],
    }),
  ),
  { stdio: ["ignore", "pipe", "inherit"] }),
);
try {
  await once(controller.stdout, "data");
  await wholeRecording();
  const lacks = [];
  for (let i = 0; i < Number(kills); ++i) {
    lacks.push(await killedRecording(i));
  }
  lacks.sort((a, b) => a - b);
  console.log(`${kills} killed: each complete, without the last ${lacks[kills >> 1]?.toFixed(0)} ms`
    + ` (median), ${lacks.at(-1)?.toFixed(0)} ms (most)`);
  rmSync(folder, { recursive: true });
} finally {
  controller.kill();
}
