export * from './engine.js';
export { LineReader } from './lines.js';
export * from './state.js';
