// Starts Shaka Player and its controls on the page's video, with the site's options.
(function () {
  'use strict';

  const configElement = document.getElementById('vorlen-player-config');
  const container = document.getElementById('vorlen-player');
  const video = document.getElementById('vorlen-video');
  const message = document.getElementById('vorlen-player-message');
  if (!configElement || !container || !video || typeof shaka === 'undefined') return;
  const config = JSON.parse(configElement.textContent);

  function show(text) {
    message.textContent = text;
    message.hidden = false;
  }

  // DASH where the browser has Media Source Extensions; HLS where it plays natively.
  function sources() {
    const hasMse = 'MediaSource' in window || 'ManagedMediaSource' in window;
    return hasMse ? [config.dash, config.hls] : [config.hls];
  }

  async function start() {
    shaka.polyfill.installAll();
    if (!shaka.Player.isBrowserSupported()) {
      show('This browser cannot play this video.');
      return;
    }
    const player = new shaka.Player();
    await player.attach(video);
    const ui = new shaka.ui.Overlay(player, container, video);
    ui.configure(config.ui);
    // For the page's own scripts and for checks of playback.
    window.vorlenPlayer = player;

    for (const source of sources()) {
      try {
        await player.load(source);
        message.hidden = true;
        return;
      } catch (error) {
        // The next source may still play; the last failure is told to the viewer.
        console.warn('Vorlen: could not load', source, error && error.code);
      }
    }
    show('This video cannot be played right now.');
  }

  start().catch(function (error) {
    console.warn('Vorlen: the player did not start', error);
    show('This video cannot be played right now.');
  });
})();
