// Entry point: the host loads index.html?path=<folder>&open=<page>.

import { App } from './app.js';

const app = new App();
app.start(new URLSearchParams(window.location.search)).catch((e) => {
  app.error('The editor could not start', e);
});
