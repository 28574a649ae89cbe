// The controller's interface as the page uses it: requests, events, control, and how old what is shown is.

import {currentLanguage} from "./texts.js";

const kBase = "/api/v1/";
const kStopAnswerMs = 500;  // without an answer it is said large
const kStatusMs = 500;  // between two looks at the status
const kStaleMs = 1000;  // values that are older are grey
const kHeartbeatMs = 3000;  // of the lease, which lasts for 10 s
const kRetryMs = 1000;
const kLostMs = 12000;  // without a byte of the events, of which one comes at least every 5 s; or without a status: asked anew
const kClockMs = 30000;  // what the fastest answers say of the controller's clock holds for at most twice as long
const kLeaseKey = "lease";
const kSeats = 3;
const kSeatKey = "seat";  // the one that was taken from another page last
const kUnseatedMs = 2000;

// What the controller refused, or why it could not be asked: `what`, `where`, `why`, `remedy`; `status` 0: no answer.
// `body`: the whole answer.
class Problem extends Error {
  constructor(status, body = {}) {
    super(body.detail ?? body.what ?? String(status));
    this.status = status;
    this.body = body;
    this.what = body.what ?? body.title ?? String(status);
    this.where = body.where ?? "";
    this.why = body.why ?? "";
    this.remedy = body.remedy ?? "";
  }
}

class Wire {
  // Of the controller, as far as it is known: null before the first answer.
  status = null;
  machine = null;
  alarms = [];
  lease = {holder: null, mine: false};
  session = {name: "", role: "viewer"};
  connected = false;  // the event stream is open
  #listeners = new Map();
  #leaseId = sessionStorage.getItem(kLeaseKey) ?? "";
  // Of what is known of control: an answer to what was asked in an earlier one is old.
  #turn = 0;
  #answeredAt = 0;
  #renewedAt = 0;
  #lastEventId = "";
  #epoch = "";  // names the controller's start
  #stream = null;
  #leaveSeat = null;
  #inFront = document.hasFocus();  // it has come to the front, and not sat down since
  #wake = null;
  #wantedRate = 10;
  #rate = 10;
  #stale = true;
  // The controller's ms less the page's, by the fastest answers of this and of the last span of kClockMs.
  #clock = {since: 0, now: -Infinity, before: -Infinity};

  // --- asking ---

  get(path) {
    return this.#ask("GET", path);
  }
  // `once` names what is meant: sent again under the same name, it is not done again. options: of fetch.
  post(path, body = {}, {once, ...options} = {}) {
    return this.#ask("POST", path, body, {headers: once ? {"Idempotency-Key": once} : {}, ...options});
  }
  put(path, body) {
    return this.#ask("PUT", path, body);
  }
  delete(path) {
    return this.#ask("DELETE", path, {});
  }

  async #ask(method, path, body, {headers: more, ...options} = {}) {
    const headers = {"Accept-Language": currentLanguage(), ...more};
    if (body !== undefined) headers["Content-Type"] = "application/json";
    if (this.#leaseId) headers.Lease = this.#leaseId;
    let answer;
    let json = {};
    try {
      answer = await fetch(kBase + path, {
        method,
        headers,
        body: body === undefined ? undefined : JSON.stringify(body),
        cache: "no-store",
        ...options,
      });
      const text = await answer.text();
      json = text ? JSON.parse(text) : {};
    } catch (error) {
      if (error instanceof SyntaxError) throw new Problem(answer.status, {what: error.message, where: path});
      throw new Problem(0, {what: "no answer", where: path});
    }
    this.#answeredAt = performance.now();
    if (!answer.ok) throw new Problem(answer.status, json);
    if (json.serverMs !== undefined) this.#readClock(json.serverMs);
    return json;
  }

  // The controller's time, rather too early than too late: how old a press is, or a heartbeat.
  serverMs() {
    return Math.max(0, Math.floor(performance.now() + Math.max(this.#clock.now, this.#clock.before)));
  }
  #readClock(serverMs) {
    const own = performance.now();
    if (own - this.#clock.since > kClockMs) this.#clock = {since: own, now: -Infinity, before: this.#clock.now};
    this.#clock.now = Math.max(this.#clock.now, serverMs - own);
  }

  // --- stop: without lease, whatever else is under way ---

  stop() {
    return this.#stopBy("stop");
  }
  allOff() {
    return this.#stopBy("all-off");
  }
  async #stopBy(path) {
    const late = setTimeout(() => this.#tell("stopUnanswered", path), kStopAnswerMs);
    try {
      const asked = fetch(kBase + path, {
        method: "POST",
        headers: {"Content-Type": "application/json", "Accept-Language": currentLanguage()},
        body: "{}",
        cache: "no-store",
        keepalive: true,
        priority: "high",
      });
      this.#tell("stopping", path);
      const answer = await asked;
      if (!answer.ok) throw new Problem(answer.status);
      this.#tell("stopAnswered", path);
    } catch {
      this.#tell("stopUnanswered", path);
    } finally {
      clearTimeout(late);
    }
  }

  // --- control ---

  // Takes control; where somebody else has it only with `takeOver`. Answers false where that is needed.
  async takeControl(takeOver = false) {
    if (this.lease.mine) return true;
    if (this.lease.holder && !takeOver) return false;
    this.#setLease((await this.post("lease", {takeOver})).lease);
    return true;
  }
  async giveControl() {
    const id = this.#leaseId;
    this.#setLease("");
    if (id) await this.#ask("DELETE", "lease", {}, {headers: {Lease: id}});
  }
  #setLease(id) {
    ++this.#turn;
    this.#leaseId = id;
    sessionStorage.setItem(kLeaseKey, id);
    this.lease = {holder: id ? this.session.name : null, mine: Boolean(id)};
    this.#tell("lease", this.lease);
    this.#applyRate();
    if (!this.#leaveSeat && this.listens !== Boolean(id)) this.#listenAnew();
  }
  // Keeps the lease, else asks who has it: what no event has told is known all the same.
  async #renew() {
    this.#renewedAt = performance.now();
    const id = this.#leaseId;
    try {
      if (id) return await this.post("lease/heartbeat");
    } catch (problem) {
      if (problem.status === 0 || id !== this.#leaseId) return;
      this.#setLease("");
    }
    await this.#readLease().catch(() => {});
  }
  async #readLease() {
    const turn = ++this.#turn;
    const {holder} = await this.get("lease");
    if (turn !== this.#turn) return;
    this.lease = {holder, mine: false};
    this.#tell("lease", this.lease);
  }

  // --- listening ---

  // One kind or several: state, step, alarm, run, led, signals, log, lease, key, queue of the controller's events; and of the page's own
  // status (looked at anew), alarms (the standing ones changed), connection, restarted (it is another start of the
  // controller, perhaps with another machine), stale, session, stopping (it is on its way), stopAnswered, stopUnanswered.
  // Answers what ends it.
  on(kinds, listener) {
    const lists = [kinds].flat().map((kind) => this.#listeners.get(kind) ?? this.#listeners.set(kind, new Set()).get(kind));
    for (const list of lists) list.add(listener);
    return () => lists.forEach((list) => list.delete(listener));
  }
  #tell(kind, data) {
    for (const listener of [...(this.#listeners.get(kind) ?? [])]) {
      try {
        listener(data);
      } catch (error) {
        console.error(error);
      }
    }
  }

  // What is shown is older than a second.
  get stale() {
    return this.#stale;
  }

  // A browser opens six connections to one controller, and each page's Stop needs one of them: so many pages listen at
  // once as there are seats, the ones that came to the front last; and who has control. What the others show is looked
  // at every now and then.
  listens = true;
  // Whether it sits. Where all seats are taken, a page that has come to the front takes the one that was not taken so
  // for the longest time.
  async #sit() {
    if (this.#leaveSeat || !navigator.locks) return true;  // no locks: a page from afar
    for (let seat = 0; seat < kSeats; ++seat) if (await this.#sitOn(seat, {ifAvailable: true})) return true;
    if (!this.#inFront || !document.hasFocus()) return false;
    const seat = (Number(localStorage.getItem(kSeatKey)) + 1) % kSeats;
    localStorage.setItem(kSeatKey, seat);
    return this.#sitOn(seat, {steal: true});
  }
  #sitOn(seat, options) {
    return new Promise((sits) => {
      const taken = navigator.locks.request("events-" + seat, options, (lock) => {
        sits(Boolean(lock));
        if (!lock) return undefined;
        this.#inFront = false;
        return new Promise((leave) => (this.#leaveSeat = leave));
      });
      taken.catch(() => {  // taken away; or there are no locks for this page
        sits(true);
        this.#leaveSeat = null;
        this.#listenAnew();
      });
    });
  }
  #listenAnew() {
    this.#stream?.abort();
    this.#wake?.();
  }
  #sleep(ms) {
    return new Promise((wake) => {
      this.#wake = wake;
      if (ms) setTimeout(wake, ms);
    });
  }

  // Signals a second, 1 to 50; while nobody sees the page it is 1, and without control it then listens not at all.
  setRate(rate) {
    this.#wantedRate = rate;
    this.#applyRate();
  }
  #applyRate() {
    const hiddenRate = this.#leaseId ? 1 : 0;
    const rate = document.hidden ? hiddenRate : this.#wantedRate;
    if (rate === this.#rate) return;
    this.#rate = rate;
    this.#listenAnew();
  }

  async start() {
    await this.#look();
    setInterval(() => this.#look(), kStatusMs);
    setInterval(() => this.#renew(), kHeartbeatMs);
    setInterval(() => this.#watchAge(), kStatusMs / 2);
    document.addEventListener("visibilitychange", () => {
      this.#applyRate();
      if (!document.hidden) this.#look();
    });
    addEventListener("focus", () => {
      this.#inFront = true;
      if (!this.listens) this.#wake?.();
    });
    this.#applyRate();
    this.#follow();
  }

  // Everything that events alone do not tell, once and after each gap.
  async refresh() {
    await Promise.all([this.#look(), this.#readAlarms(), this.#readSession(), this.get("machine").then((machine) => (this.machine = machine))]);
    await this.#renew();
    this.#tell("connection", this.connected);
  }

  // Exchanges a link's code for a session.
  async logIn(code) {
    await this.post("session", {code});
    await this.#readSession();
  }
  async #readSession() {
    this.session = await this.get("session");
    this.#tell("session", this.session);
  }
  // One answer after the other: an older one never replaces a newer, and a burst of events is read twice, not each time.
  #alarmsRead = null;
  #alarmsDue = false;
  #readAlarms() {
    this.#alarmsDue = true;
    return (this.#alarmsRead ??= this.#readDueAlarms());
  }
  async #readDueAlarms() {
    try {
      while (this.#alarmsDue) {
        this.#alarmsDue = false;
        this.alarms = (await this.get("alarms")).alarms;
        this.#tell("alarms", this.alarms);
      }
    } finally {
      this.#alarmsRead = null;
    }
  }

  #looking = false;
  async #look() {
    if (this.#looking) return;
    this.#looking = true;
    try {
      this.status = await this.#ask("GET", "status", undefined, {signal: AbortSignal.timeout(kLostMs)});
      this.#tell("status", this.status);
    } catch {
      // Said by its age.
    } finally {
      this.#looking = false;
      this.#watchAge();
    }
  }
  #watchAge() {
    const stale = !this.#answeredAt || performance.now() - this.#answeredAt > kStaleMs;
    if (stale === this.#stale) return;
    this.#stale = stale;
    this.#tell("stale", stale);
  }

  async #follow() {
    for (;;) {
      if (this.#rate === 0) {
        this.#leaveSeat?.();
        this.#leaveSeat = null;
        await this.#sleep();
        continue;
      }
      this.listens = (await this.#sit()) || Boolean(this.#leaseId);
      if (!this.listens) {
        this.connected = true;
        await this.refresh().catch(() => {
          this.connected = false;
          this.#tell("connection", false);
        });
        await this.#sleep(kUnseatedMs);
      }
      if (!this.listens || this.#rate === 0) continue;
      const stream = new AbortController();
      this.#stream = stream;
      let retryMs = kRetryMs;
      try {
        const headers = {Accept: "text/event-stream", "Accept-Language": currentLanguage()};
        if (this.#lastEventId) headers["Last-Event-ID"] = this.#lastEventId;
        const answer = await fetch(kBase + "events?rate=" + this.#rate, {headers, signal: stream.signal, cache: "no-store"});
        if (!answer.ok) throw new Problem(answer.status);
        this.connected = true;
        await this.refresh();
        await this.#read(answer.body.getReader());
      } catch {
        if (stream.signal.aborted) retryMs = 0;
      }
      if (!stream.signal.aborted) {
        this.connected = false;
        this.#clock = {since: 0, now: -Infinity, before: -Infinity};  // the next one may be another machine's
        this.#tell("connection", false);
        stream.abort();  // what failed behind its beginning would keep the connection
      }
      await new Promise((done) => setTimeout(done, retryMs));
    }
  }

  async #read(reader) {
    const decoder = new TextDecoder();
    let text = "";
    for (;;) {
      const lost = setTimeout(() => reader.cancel().catch(() => {}), kLostMs);
      const {value, done} = await reader.read().finally(() => clearTimeout(lost));
      if (done) return;
      this.#answeredAt = performance.now();
      // A browser lets the timers of a hidden page sleep for a minute, not what it receives.
      if (document.hidden && this.#answeredAt - this.#renewedAt > kHeartbeatMs) this.#renew();
      text += decoder.decode(value, {stream: true});
      const blocks = text.split("\n\n");
      text = blocks.pop();
      for (const block of blocks) this.#take(block);
    }
  }

  #take(block) {
    let kind = "";
    let data = "";
    for (const line of block.split("\n")) {
      if (line.startsWith("id: ")) this.#lastEventId = line.slice(4);
      else if (line.startsWith("event: ")) kind = line.slice(7);
      else if (line.startsWith("data: ")) data += line.slice(6);
    }
    if (!kind) return;
    const event = JSON.parse(data);
    if (kind === "signals" && this.status) this.status = {...this.status, signals: event};
    // What is not answered now is read behind the next beginning of the stream.
    if (kind === "alarm") this.#readAlarms().catch(() => {});
    if (kind === "lease") {
      ++this.#turn;
      this.lease = {holder: event.holder, mine: Boolean(this.#leaseId)};
      this.#renew();  // which tells whether it still is this page's
    }
    if (kind === "state" || kind === "run") this.#look();
    if (kind === "missed") this.refresh().catch(() => {});
    this.#tell(kind, event);
    if (kind !== "hello") return;
    const restarted = this.#epoch && this.#epoch !== event.epoch;
    this.#epoch = event.epoch;
    if (restarted) this.#tell("restarted");
  }

  // After a change of language: what was told in the other one is asked again.
  languageChanged() {
    this.#listenAnew();
  }
}

export const wire = new Wire();
