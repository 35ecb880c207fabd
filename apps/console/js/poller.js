// Asks again and again, one round at a time.

/** Milliseconds between the end of a round and the next. */
const PERIOD = 1000;
/** Pauses after the first, second, … failure in a row; the last one repeats. */
const PAUSES = [1000, 2000, 4000, 8000, 15000];

/**
 * Runs `round`, an async function that gives null or the error that makes the next round wait longer. A round begins only
 * when the last one has ended, so that a slow server is never asked twice at once.
 * `report(error, retryAt)` is told after each round, error null for a good one.
 */
export class Poller {
  constructor(round, report) {
    this.round = round;
    this.report = report;
    this.failures = 0;
    this.turn = null;
    this.wake = () => {};
    this.hurry = false;
  }

  /** Begins asking. A round of an earlier start that is still under way is left alone, and what it brings isn't reported. */
  start() {
    this.stop();
    this.failures = 0;
    this.turn = {};
    this.run(this.turn);
  }

  stop() {
    this.turn = null;
    this.wake();
  }

  /** Begins the next round at once, or as soon as the present one has ended. */
  now() {
    this.hurry = true;
    this.wake();
  }

  async run(turn) {
    while (this.turn === turn) {
      this.hurry = false;
      const error = await this.round();
      if (this.turn !== turn) return;
      this.failures = error ? this.failures + 1 : 0;
      const pause = error ? this.pauseAfterFailure() : PERIOD;
      this.report(error, Date.now() + pause);
      if (this.turn === turn && !this.hurry) await this.wait(pause);
    }
  }

  /** Up to a fifth more, so that the consoles of a plant don't all come back in the same instant. */
  pauseAfterFailure() {
    return PAUSES[Math.min(this.failures, PAUSES.length) - 1] * (1 + Math.random() / 5);
  }

  wait(milliseconds) {
    return new Promise((resolve) => {
      const timer = setTimeout(resolve, milliseconds);
      this.wake = () => {
        clearTimeout(timer);
        resolve();
      };
    });
  }
}
