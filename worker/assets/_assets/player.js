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

  // The site's options follow a later release of the player than the one bundled: an
  // option that this player does not have is left out, where it would report an error.
  function knownOptions(ui, options) {
    const known = ui.getConfiguration();
    return Object.fromEntries(Object.entries(options).filter(function (entry) { return entry[0] in known; }));
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
    ui.configure(knownOptions(ui, config.ui));
    // For the page's own scripts and for checks of playback.
    window.vorlenPlayer = player;

    let playing = null;
    let lastReload = -Infinity;
    // A new file for a video removes its old media a moment after the manifests
    // switch, so a viewer whose player read the old manifest meets missing files.
    // The player then reads the manifest again and goes on where it was. Misses of
    // the old media in the minute after are the same change; a video that is gone
    // for good fails at its next reading of the manifest.
    player.addEventListener('error', function (event) {
      const error = event.detail;
      const isMissing = error && error.code === shaka.util.Error.Code.BAD_HTTP_STATUS && error.data[1] === 404;
      if (!isMissing || !playing) return;
      error.handled = true;
      if (performance.now() - lastReload < 60000) return;
      lastReload = performance.now();
      const wasPlaying = !video.paused;
      // Past every cache: the browser's and the edge's copies hold the old manifest for minutes.
      const fresh = playing + (playing.includes('?') ? '&' : '?') + 'reload=' + Date.now();
      player.load(fresh, video.currentTime).then(function () {
        if (wasPlaying) return video.play();
      }).catch(function (failure) {
        console.warn('Vorlen: could not load', playing, failure && failure.code);
        show('This video cannot be played right now.');
      });
    });

    for (const source of sources()) {
      try {
        await player.load(source);
        playing = source;
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
