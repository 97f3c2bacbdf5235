/* Support script of the Sorvel reference ad server (v40).
 * In the client's hidden page: ZELM_buildAdURL(params) answers with an in-ad message URL.
 * In ads and web apps: ZELM.send / ZELM.on carry in-ad messages both ways, and
 * ZELM_ReceiveMessage(name, data) receives the client's messages. */
(function (global) {
  'use strict';

  var SERVED_FROM = __ZELM_ORIGIN__;
  var UNITS = __ZELM_UNITS__;
  // Whether a request may name the answer itself ("zf_scriptReply" in its extras).
  var REQUEST_FAULTS = __ZELM_REQUEST_FAULTS__;
  var AD_PATH = '/ad';
  var SEND_SPACING_MS = 40;

  // The ad server is where the script came from: a cached copy of the script belongs to one
  // script address, so it never points at a server that has moved to another port.
  function origin() {
    return SERVED_FROM;
  }

  function isObject(value) {
    return value !== null && typeof value === 'object' && !(value instanceof Array);
  }

  // Nested dictionaries and arrays travel as JSON text; everything else as its text.
  function valueText(value) {
    if (value === null || value === undefined) return '';
    if (typeof value === 'object') return JSON.stringify(value);
    return String(value);
  }

  function queryString(params) {
    var parts = [];
    for (var key in params) {
      if (Object.prototype.hasOwnProperty.call(params, key)) {
        parts.push(encodeURIComponent(key) + '=' + encodeURIComponent(valueText(params[key])));
      }
    }
    return parts.join('&');
  }

  function messageURL(name, params) {
    var query = params ? queryString(params) : '';
    return 'qmsg:///' + name + (query ? '?' + query : '');
  }

  // Messages are navigations; two in the same turn would cancel each other, so they are
  // queued and sent a little apart.
  var queue = [];
  var sending = false;
  function navigate(url) {
    queue.push(url);
    pump();
  }
  function pump() {
    if (sending || queue.length === 0) return;
    sending = true;
    global.location.href = queue.shift();
    global.setTimeout(function () {
      sending = false;
      pump();
    }, SEND_SPACING_MS);
  }

  function extras(params) {
    var value = params.extras;
    if (typeof value === 'string') {
      try {
        value = JSON.parse(value);
      } catch (e) {
        value = null;
      }
    }
    return isObject(value) ? value : {};
  }

  global.ZELM_buildAdURL = function (params) {
    if (typeof params === 'string') {
      try {
        params = JSON.parse(params);
      } catch (e) {
        params = null;
      }
    }
    if (!isObject(params) || typeof params.slotname !== 'string' || params.slotname === '') {
      navigate(messageURL('invalidRequest', { reason: 'the request names no ad unit' }));
      return;
    }
    var slot = params.slotname;
    var unit = Object.prototype.hasOwnProperty.call(UNITS, slot) ? UNITS[slot] : null;
    var asked = REQUEST_FAULTS ? extras(params).zf_scriptReply : null;
    var reply = asked || (unit && unit.reply) || 'loadAdURL';
    // A malformed identifier goes on to the ad endpoint, which rejects it with 400.
    var wellFormed = /^[0-9a-f]{15}$/.test(slot);
    if (reply === 'loadAdURL' && wellFormed && (!unit || unit.paused)) {
      reply = 'unableToServe';
    }
    // Answers that send nothing the client can see leave this trace in the console.
    if (global.console && global.console.log) global.console.log('ZELM_buildAdURL answers ' + reply);
    switch (reply) {
      case 'none':
        return;
      case 'invalidRequest':
        navigate(messageURL('invalidRequest', { slotname: slot, reason: 'refused by the ad unit' }));
        return;
      case 'unableToServe':
        navigate(messageURL('unableToServe', {
          slotname: slot,
          reason: unit ? 'the ad unit is paused' : 'unknown ad unit'
        }));
        return;
      case 'errors':
        navigate(messageURL('loadAdURL', { errors: 'the ad server refused the request' }));
        return;
      case 'unknown':
        navigate(messageURL('noSuchAnswer', { slotname: slot }));
        return;
      case 'throw':
        throw new Error('the support script gave up on ' + slot);
      case 'file':
        navigate('file:///etc/passwd');
        return;
      case 'blank':
        navigate('about:blank');
        return;
    }
    var answer = messageURL('loadAdURL', {
      url: origin() + AD_PATH + '?' + queryString(params),
      type: (unit && unit.type) || 'html'
    });
    navigate(answer);
    if (reply === 'twice') {
      navigate(answer);
    }
  };

  var listeners = {};

  // Messages from the client ("onshow", "onhide", "openableURLs", ...): logged to the console
  // and to the ad server's request log, then handed to the page's listeners.
  global.ZELM_ReceiveMessage = function (name, data) {
    var text = '';
    try {
      text = data === undefined ? '' : JSON.stringify(data);
    } catch (e) {
      text = String(data);
    }
    if (global.console && global.console.log) global.console.log('ZELM_ReceiveMessage ' + name + ' ' + text);
    try {
      var beacon = new global.Image();
      beacon.src = origin() + '/msg?' + queryString({ name: name, data: text });
    } catch (e) { /* no images: the console line is enough */ }
    var handlers = (listeners[name] || []).concat(listeners['*'] || []);
    for (var i = 0; i < handlers.length; i++) {
      try {
        handlers[i](data, name);
      } catch (e) {
        if (global.console && global.console.log) global.console.log('ZELM listener failed: ' + e);
      }
    }
    return true;
  };

  global.ZELM = {
    origin: origin,
    messageURL: messageURL,
    // send('open', {a: 'browser', u: 'http://...'}) navigates to qmsg:///open?a=browser&u=...
    send: function (name, params) {
      navigate(messageURL(name, params));
    },
    // The older form: torvin://launch?url=..., torvin://closecanvas, torvin://log?string=...
    sendTorvin: function (host, params) {
      var query = params ? queryString(params) : '';
      navigate('torvin://' + host + (query ? '?' + query : ''));
    },
    on: function (name, handler) {
      (listeners[name] = listeners[name] || []).push(handler);
    }
  };
})(this);
