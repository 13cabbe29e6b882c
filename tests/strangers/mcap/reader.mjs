// What others' readers make of a recording. Throws what they find wrong with it.
import assert from "node:assert/strict";
import { open, readFile } from "node:fs/promises";

import { parse } from "@foxglove/rosmsg";
import { MessageReader } from "@foxglove/rosmsg2-serialization";
import { McapIndexedReader, McapStreamReader } from "@mcap/core";

class File {
  constructor(handle) {
    this.handle = handle;
  }
  async size() {
    return BigInt((await this.handle.stat()).size);
  }
  async read(offset, length) {
    const bytes = new Uint8Array(Number(length));
    const { bytesRead } = await this.handle.read(bytes, 0, bytes.length, Number(offset));
    assert.equal(bytesRead, bytes.length);
    return bytes;
  }
}

// By the index, in order of time, every message decoded and every checksum looked at.
export async function readRecording(path) {
  const handle = await open(path);
  try {
    const reader = await McapIndexedReader.Initialize({ readable: new File(handle) });
    const decoders = new Map();
    for (const [id, channel] of reader.channelsById) {
      const schema = reader.schemasById.get(channel.schemaId);
      assert.deepEqual([channel.messageEncoding, schema.encoding], ["cdr", "ros2msg"]);
      const definition = parse(new TextDecoder().decode(schema.data), { ros2: true });
      decoders.set(id, new MessageReader(definition));
    }
    const found = { channels: [...reader.channelsById.values()], messages: [], attachments: [] };
    let last = 0n;
    for await (const message of reader.readMessages({ validateCrcs: true })) {
      assert.ok(message.logTime >= last, `time goes back at message ${found.messages.length}`);
      assert.ok(message.publishTime <= message.logTime);
      last = message.logTime;
      found.messages.push({
        sequence: message.sequence,
        logTime: message.logTime,
        publishTime: message.publishTime,
        values: decoders.get(message.channelId).readMessage(message.data),
      });
    }
    for await (const attachment of reader.readAttachments({ validateCrcs: true })) {
      found.attachments.push(attachment.name);
    }
    for await (const { name, metadata } of reader.readMetadata()) {
      found[name] = metadata;
    }
    const statistics = reader.statistics;
    assert.equal(statistics.messageCount, BigInt(found.messages.length));
    assert.equal(statistics.chunkCount, reader.chunkIndexes.length);
    assert.equal(statistics.messageEndTime, last);
    return found;
  } finally {
    await handle.close();
  }
}

// From record to record, without the index. Returns how many messages there are.
export async function streamRecording(path) {
  const reader = new McapStreamReader({ validateCrcs: true });
  reader.append(await readFile(path));
  let messages = 0;
  for (let record; (record = reader.nextRecord()); ) {
    messages += record.type === "Message" ? 1 : 0;
  }
  assert.ok(reader.done());
  return messages;
}
