/** Types of the messages between server and page, and of what several modules share. */

declare const uPlot: typeof import('uplot');

/** A JSON value. */
type Json = null | boolean | number | string | Json[] | { [name: string]: Json };
type JsonObject = { [name: string]: Json };

interface SubSweep {
  offset: number;
  points: number;
  start_m: number;
  step_m: number;
}

/** One measured item of a session. Lengths are in metres, rates in Hz, velocities in m/s. */
interface Item {
  group: number;
  index: number;
  sensor: number;
  profile: number;
  gain: number;
  sweeps: number;
  points: number;
  sweep_rate: number;
  wavelength_m: number;
  full_scale: number;
  max_velocity_sweeps: number;
  max_velocity_frames: number;
  subsweeps: SubSweep[];
}

type Figure = [label: string, value: string];

interface Hello {
  type: 'hello';
  version: string;
  /** As in the state, when it controls: the lowest number that no other viewer had. */
  viewer: number;
  viewers: number;
  controls: boolean;
  kind: 'server' | 'recording';
  source: string;
  name: string;
  /** Of the board, if it has one. */
  id: string | null;
  /** Which of how many boards. */
  board: number;
  boards: number;
  /** When a recording began, as in RFC 3339. */
  recorded: string | null;
  schema: Schema;
}

interface Session {
  type: 'session';
  number: number;
  configuration: JsonObject;
  ticks_per_second: number;
  tick_period: number | null;
  rate: number;
  items: Item[];
  plan: Figure[];
}

interface Recorder {
  directory: string;
  frames: number;
  missing: number;
  bytes: number;
  failure: string | null;
}

interface Position {
  frame: number;
  frames: number;
  seconds: number;
  duration: number;
  speed: number;
  /** Of several boards: where all are on their axis of time, and where that begins and ends. In UTC, in seconds. */
  utc_s?: number;
  begin_utc_s?: number;
  end_utc_s?: number;
}

interface State {
  type: 'state';
  connection: 'connected' | 'lost' | 'reconnecting' | 'playing' | 'paused' | 'ended';
  reason: string | null;
  frames: number;
  rate_due: number;
  rate: number;
  missing: number;
  dropped: number;
  delayed: number;
  saturated: number;
  invalid: number;
  calibration_needed: boolean;
  temperatures: { sensor: number; celsius: number }[];
  viewers: number;
  controls: boolean;
  controller: number | null;
  recorder: Recorder | null;
  memory: { live: number; peak: number; size: number } | null;
  stack: { peak: number; size: number } | null;
  position: Position | null;
}

interface Log {
  type: 'log';
  level: 'error' | 'warning' | 'info' | 'verbose';
  text: string;
}

interface Fault {
  pointer: string;
  /** All members that a broken rule between members names. */
  members: string[];
  message: string;
  nearest?: number | null;
}

interface Checked {
  type: 'checked';
  id: number;
  faults: Fault[];
  plan: Figure[];
}

/** A target that a simulated sensor sees. */
interface Target {
  target: number;
  distance_m: number;
  velocity_m_s: number;
}

/** Where the targets are in the frame that follows: for each item, null if unknown. */
interface Truth {
  type: 'truth';
  items: (Target[] | null)[];
}

interface Done {
  type: 'done';
  for: string;
  text: string;
}

interface Failed {
  type: 'failed';
  for: string;
  message: string;
  faults?: Fault[];
}

type Message = Hello | Session | State | Log | Truth | Checked | Done | Failed;

/** What a frame says about one item. */
interface ItemInfo {
  tick: number;
  data_saturated: boolean;
  temperature: number;
  calibration_needed: boolean;
  frame_delayed: boolean;
  data_valid?: boolean;
  /** When it was measured, in seconds since 1970 in UTC, and how far the true time can be from it. */
  utc_s?: number;
  utc_bound_s?: number;
}

/** A received frame: the items in the order of the payload, and the payload itself. */
interface Frame {
  items: ItemInfo[];
  payload: Uint8Array;
}

/** Where the samples of an item are in a frame, and what they mean. */
interface Layout {
  item: Item;
  offset: number;
  points: number;
  sweeps: number;
  distances: Float64Array;
  steps: Float64Array;
}

type Span = [low: number, high: number];
type Numbers = ArrayLike<number>;

/** A value of a document; undefined if there is none. */
type Value = Json | undefined;

type Names = { [name: string]: string };
type TakeNumber = (number: number) => void;
type Send = (message: JsonObject) => void;

/** A figure on the page, and the part with its value. */
type Cell = [cell: HTMLElement, value: HTMLElement];

/** Draws inside the axes of a plot. */
type DrawInside = (to: ToPixels, context: CanvasRenderingContext2D, area: Box) => void;

/** Of a cursor, by key. */
type Moves = { [key: string]: [points: number, frames: number] };

/** In seconds, by key. */
type Scrolls = { [key: string]: number };

/** A rectangle in CSS pixels. */
interface Box {
  left: number;
  top: number;
  width: number;
  height: number;
}

interface Window {
  vantor: { numbers: () => unknown; board?: Board };
  vantorBoards?: Axis;
}

/** What the page of a board asks of the page above it. */
interface Axis {
  toggle: () => void;
  scroll: (seconds: number) => void;
  goToEnd: (last: boolean) => void;
}

/** What all boards show. */
interface Shown {
  frozen: boolean;
  /** The moment at the right edge, in UTC; NaN if unknown. */
  edge: number;
  /** On the axes of time. */
  seconds: number;
}

/** The moments that a board has, in UTC, and the bound of the one that is shown. */
interface Moments {
  first: number;
  last: number;
  bound: number;
}

/** What the page above asks of the page of a board. */
interface Board {
  hello: () => Hello | null;
  state: () => State | null;
  send: Send;
  /** Null if its time in UTC is unknown. */
  moments: () => Moments | null;
  show: (shown: Shown) => void;
}

type ChartAxis = import('uplot').Axis;
type FrameRing = import('./ring.js').FrameRing;
type Analysis = import('./analysis.js').Analysis;
type Panel = import('./panel.js').Panel;

/** Where a cursor is: at a point, and at a time or at the frame that is shown. */
interface Cursor {
  point: number;
  seconds: number | null;
}

/** What a cursor reads. */
interface Reading {
  metres: number;
  level: number;
  seconds: number;
  /** At the time of the cursor; NaN if it has none, or it is unknown. */
  utc: number;
  displacement: number;
}

/** Draws a cursor. */
type DrawCursor = (cursor: Cursor, colour: string, name: string) => unknown;

/** From values to pixels of a canvas. */
interface ToPixels {
  x: (value: number) => number;
  y: (value: number) => number;
}

/** What is said about a session's clock. */
type Clock = Pick<Session, 'ticks_per_second' | 'tick_period' | 'rate'>;

type Chart = import('./chart.js').Chart;

/** Where a value is in a document. */
type Path = (string | number)[];

/** The parts of a schema that a form needs. */
interface Schema {
  $ref?: string;
  $defs?: { [name: string]: Schema };
  type?: string;
  properties?: { [name: string]: Schema };
  items?: Schema;
  required?: string[];
  minItems?: number;
  minimum?: number;
  maximum?: number;
  enum?: Json[];
  default?: Json;
  description?: string;
}

/** What a form shows of a plain member. */
interface Field {
  title: string;
  unit: string;
  about: string;
  choices?: Json[];
  fallback: string;
}

/** What the modules know of the session. */
interface App {
  hello: Hello | null;
  session: Session | null;
  state: State | null;
  ring: FrameRing | null;
  clock: import('./frames.js').FrameClock | null;
  panels: Panel[];
  /** Frames that could not be read. */
  unreadable: number;
  connection: import('./connection.js').Connection | null;
}

/** What a connection calls. */
interface Receiver {
  text: (message: Message) => void;
  frame: (data: ArrayBuffer) => void;
  closed: (reason: string) => void;
}

/** When a frame was measured, whether frames are missing before it, and whether time begins again with it. */
interface PlacedFrame {
  seconds: number;
  gap: boolean;
  restart: boolean;
}
