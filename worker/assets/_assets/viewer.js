// The passkey steps of the sign-in page and the invite page. The pages run no inline
// script: what this needs is in #vorlen-viewer-config.
(function () {
  'use strict';

  const configElement = document.getElementById('vorlen-viewer-config');
  const button = document.getElementById('viewer-action');
  const status = document.getElementById('viewer-status');
  if (!configElement || !button || !status) return;
  const config = JSON.parse(configElement.textContent);

  function bytesOf(text) {
    const binary = atob(text.replace(/-/g, '+').replace(/_/g, '/'));
    return Uint8Array.from(binary, function (c) { return c.charCodeAt(0); });
  }

  function textOf(buffer) {
    let binary = '';
    new Uint8Array(buffer).forEach(function (byte) { binary += String.fromCharCode(byte); });
    return btoa(binary).replace(/\+/g, '-').replace(/\//g, '_').replace(/=+$/, '');
  }

  async function post(address, body) {
    const response = await fetch(address, {
      method: 'POST',
      credentials: 'same-origin',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body || {}),
    });
    const answer = await response.json().catch(function () { return {}; });
    if (!response.ok) throw new Error(answer.error || 'The site did not answer. Try again in a moment.');
    return answer;
  }

  async function makePasskey() {
    const options = await post(config.options);
    options.challenge = bytesOf(options.challenge);
    options.user.id = bytesOf(options.user.id);
    const credential = await navigator.credentials.create({ publicKey: options });
    const response = credential.response;
    return post(config.submit, {
      id: credential.id,
      clientDataJSON: textOf(response.clientDataJSON),
      authenticatorData: textOf(response.getAuthenticatorData()),
      publicKey: textOf(response.getPublicKey()),
      publicKeyAlgorithm: response.getPublicKeyAlgorithm(),
      transports: response.getTransports ? response.getTransports() : [],
    });
  }

  // No list of credentials: the device offers the passkey that it keeps for this site.
  async function signIn() {
    const options = await post(config.options);
    options.challenge = bytesOf(options.challenge);
    const credential = await navigator.credentials.get({ publicKey: options });
    const response = credential.response;
    return post(config.submit, {
      id: credential.id,
      clientDataJSON: textOf(response.clientDataJSON),
      authenticatorData: textOf(response.authenticatorData),
      signature: textOf(response.signature),
      userHandle: response.userHandle ? textOf(response.userHandle) : null,
    });
  }

  button.addEventListener('click', async function () {
    if (!window.PublicKeyCredential) {
      status.textContent = 'This browser cannot use passkeys. Open the page in a current browser.';
      return;
    }
    button.disabled = true;
    status.textContent = config.mode === 'invite' ? 'Making your passkey…' : 'Signing in…';
    try {
      const answer = await (config.mode === 'invite' ? makePasskey() : signIn());
      status.textContent = 'Signed in. Opening the videos…';
      window.location.assign(answer.next);
    } catch (error) {
      status.textContent = error.name === 'NotAllowedError'
        ? 'No passkey was used. Try again when you are ready.'
        : error.message;
      button.disabled = false;
    }
  });
})();
