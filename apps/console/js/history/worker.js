// Asks for the log and reads it, away from the page, which stays quick however much there is. It is told the path, and tells
// {kind: "rows", records, received, total}, then {kind: "done", complete, dropped} or {kind: "failed", error}. Whoever wants no more ends it.

import { ApiError, openReply } from "../api.js";
import { ReplyReader } from "./reply.js";

/** Milliseconds without a byte after which the server counts as silent. It collects the whole log of the period before the first. */
const PATIENCE = 120000;

/** Aborts `control` when `touch` isn't called for that long. */
function watch(control, milliseconds) {
  let timer = 0;
  const touch = () => {
    clearTimeout(timer);
    timer = setTimeout(() => control.abort(), milliseconds);
  };
  touch();
  return { touch, stop: () => clearTimeout(timer) };
}

async function read(path) {
  const control = new AbortController();
  const silence = watch(control, PATIENCE);
  const { body, total } = await openReply(path, control.signal);
  const text = new TextDecoder();
  const reader = new ReplyReader();
  let received = 0;
  const tell = (records) => postMessage({ kind: "rows", records, received, total });
  for (const source = body.getReader(); ;) {
    const { done, value } = await source.read();
    if (done) break;
    silence.touch();
    received += value.length;
    tell(reader.take(text.decode(value, { stream: true })));
  }
  silence.stop();
  tell([...reader.take(text.decode()), ...reader.end()]);
  postMessage({ kind: "done", complete: reader.complete, dropped: reader.dropped });
}

function explained(error) {
  if (error instanceof ApiError) return error;
  if (error.name === "AbortError") return new ApiError("unreachable", `no answer within ${PATIENCE / 1000} s`);
  if (error.name === "TypeError") return new ApiError("unreachable", "the connection broke off");
  return new ApiError("unreadable", error.message);
}

onmessage = async ({ data: { path } }) => {
  try {
    await read(path);
  } catch (reason) {
    const { kind, message, status } = explained(reason);
    postMessage({ kind: "failed", error: { kind, message, status } });
  }
};
