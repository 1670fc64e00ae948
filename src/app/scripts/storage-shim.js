// Gives the page a working localStorage when the engine refuses one. Nothing
// is kept across loads.
(function () {
  'use strict';
  try {
    window.localStorage.getItem('__vorna_probe__');
    return;
  } catch (e) {}
  var store = Object.create(null);
  var storage = {
    getItem: function (k) {
      k = String(k);
      return k in store ? store[k] : null;
    },
    setItem: function (k, v) { store[String(k)] = String(v); },
    removeItem: function (k) { delete store[String(k)]; },
    clear: function () { store = Object.create(null); },
    key: function (i) {
      var keys = Object.keys(store);
      return i >= 0 && i < keys.length ? keys[i] : null;
    }
  };
  Object.defineProperty(storage, 'length', {
    get: function () { return Object.keys(store).length; }
  });
  try {
    Object.defineProperty(window, 'localStorage', {
      configurable: true,
      get: function () { return storage; }
    });
  } catch (e) {}
})();
