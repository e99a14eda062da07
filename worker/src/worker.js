// The page Worker of a Vorlen site: player pages, embeds, the home page and the
// not-found page, rendered from the objects in the site's bucket. It never hands
// out a bucket object itself: the media host serves the media, this Worker only HTML.

// Filled in by worker/build.mjs from templates/ and manifest.json.
const builtInTemplates = /* built-in templates */ {};
const bundleVersion = /* bundle version */ '0.0.0';
const playerVersion = /* player version */ '0.0.0';
// The names of the bucket, the sessions' namespace and the challenge key in `env`.
const bindingNames = /* binding names */ {};

const siteKey = '_vorlen/site.json';
const playerKey = '_vorlen/player.json';
const templateKey = '_vorlen/template.html';
const catalogKey = '_vorlen/catalog.json';

const pageCacheSeconds = 60;
const folderNamePattern = /^[a-z0-9]+(?:-[a-z0-9]+)*$/;
const folderPathPattern = /^[A-Za-z0-9._-]+(?:\/[A-Za-z0-9._-]+)*$/;
const hostnameLabel = '[a-z0-9](?:[a-z0-9-]{0,61}[a-z0-9])?';
const hostnamePattern = new RegExp(`^${hostnameLabel}(?:\\.${hostnameLabel})*$`);
const semanticVersionPattern = /^(?:0|[1-9][0-9]*)\.(?:0|[1-9][0-9]*)\.(?:0|[1-9][0-9]*)(?:-[^.]+(?:\.[^.]+)*)?$/;
const templates = ['auto', 'light', 'dark', 'custom'];
const embedSites = ['any', 'listed', 'none'];

class SiteUnavailable extends Error {
  constructor(reason) {
    super(reason);
    this.reason = reason;
  }
}

// ---------------------------------------------------------------------------
// Text and HTML

function escapeHtml(text) {
  return String(text).replace(/[&<>"']/g, (c) => ({
    '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&#39;',
  })[c]);
}

// JSON inside a <script> element: nothing in it may close the element or open a comment.
function scriptJson(value) {
  return JSON.stringify(value)
    .replace(/</g, '\\u003c')
    .replace(/>/g, '\\u003e')
    .replace(/&/g, '\\u0026')
    .replace(/\u2028/g, '\\u2028')
    .replace(/\u2029/g, '\\u2029');
}

const whiteSpace = '\\t\\n\\u000B\\f\\r \\u00A0\\u1680\\u2000-\\u200A\\u2028\\u2029\\u202F\\u205F\\u3000\\uFEFF';
const markdownLinkPattern = new RegExp(
  `\\[([^${whiteSpace}\\[\\]](?:[^\\[\\]\\n\\r\\u2028\\u2029]*[^${whiteSpace}\\[\\]])?)\\]` +
  `(\\((?:https?:\\/\\/|mailto:)[^${whiteSpace}()]+\\))`, 'giu');
const bareAddressPattern = new RegExp(
  `(?<![A-Za-z0-9])https?:\\/\\/[^${whiteSpace}<>\\u0000\\uE000-\\uF8FF]+`, 'giu');
const trailingPunctuation = /[?!.,:;*_~'"\u2019\u201D]+$/u;

// Bold and italics over text that is already escaped. Link placeholders (\u0000n\u0000)
// pass through, so emphasis may wrap a link.
function emphasis(html) {
  return html
    .replace(/\*\*(?=\S)([^]*?\S)\*\*/g, '<strong>$1</strong>')
    .replace(/(^|[^\w])__(?=\S)([^]*?\S)__(?!\w)/g, '$1<strong>$2</strong>')
    .replace(/\*(?=[^\s*])([^*]*?[^\s*])\*/g, '<em>$1</em>')
    .replace(/\*(?=[^\s*])([^\s*])\*/g, '<em>$1</em>')
    .replace(/(^|[^\w])_(?=[^\s_])([^_]*?[^\s_]|[^\s_])_(?!\w)/g, '$1<em>$2</em>');
}

function linkHtml(address, innerHtml) {
  return `<a href="${escapeHtml(address)}" rel="nofollow noopener" target="_blank">${innerHtml}</a>`;
}

function paragraphHtml(text) {
  const links = [];
  const hold = (html) => `\u0000${links.push(html) - 1}\u0000`;
  let rest = text.replace(markdownLinkPattern, (_, label, target) =>
    hold(linkHtml(target.slice(1, -1), emphasis(escapeHtml(label)))));
  rest = rest.replace(bareAddressPattern, (match) => {
    const address = match.replace(trailingPunctuation, '');
    // An address with a bracket could not stand inside a link, so it stays text.
    if (/[()[\]]/.test(address) || /^https?:\/\/$/i.test(address)) return match;
    return hold(linkHtml(address, escapeHtml(address))) + match.slice(address.length);
  });
  const html = emphasis(escapeHtml(rest)).replace(/\n/g, '<br>\n');
  return html.replace(/\u0000(\d+)\u0000/g, (_, n) => links[Number(n)]);
}

// A description as safe HTML: bold, italics and links; everything else is text.
function descriptionHtml(description) {
  if (!description) return '';
  return description
    .replace(/\u0000/g, '')
    .split(/\n[ \t]*\n+/)
    .map((p) => p.trim())
    .filter((p) => p.length > 0)
    .map((p) => `<p>${paragraphHtml(p)}</p>`)
    .join('\n');
}

// The description as one line of plain text, for meta tags.
function descriptionSummary(description, limit = 200) {
  if (!description) return '';
  const plain = description
    .replace(markdownLinkPattern, '$1')
    .replace(/\*\*|__|\*|(?<!\w)_|_(?!\w)/g, '')
    .replace(/\s+/g, ' ')
    .trim();
  if (plain.length <= limit) return plain;
  const cut = plain.slice(0, limit - 1);
  const space = cut.lastIndexOf(' ');
  return `${(space > limit / 2 ? cut.slice(0, space) : cut).trimEnd()}…`;
}

function formatDuration(seconds) {
  if (typeof seconds !== 'number' || !Number.isFinite(seconds) || seconds < 0) return '';
  const whole = Math.round(seconds);
  const h = Math.floor(whole / 3600);
  const m = Math.floor((whole % 3600) / 60);
  const s = String(whole % 60).padStart(2, '0');
  return h > 0 ? `${h}:${String(m).padStart(2, '0')}:${s}` : `${m}:${s}`;
}

function spokenDuration(seconds) {
  if (typeof seconds !== 'number' || !Number.isFinite(seconds) || seconds < 0) return '';
  const whole = Math.round(seconds);
  const parts = [[Math.floor(whole / 3600), 'hour'], [Math.floor((whole % 3600) / 60), 'minute'], [whole % 60, 'second']]
    .filter(([n]) => n > 0)
    .map(([n, unit]) => `${n} ${unit}${n === 1 ? '' : 's'}`);
  return parts.length ? parts.join(' ') : '0 seconds';
}

const dateFormat = new Intl.DateTimeFormat('en-GB', { day: 'numeric', month: 'long', year: 'numeric', timeZone: 'UTC' });

function formatDate(iso) {
  const time = Date.parse(iso);
  return Number.isNaN(time) ? '' : dateFormat.format(new Date(time));
}

// Search folds case and accents, so that "cafe" finds "Café".
function folded(text) {
  return String(text).normalize('NFD').replace(/\p{M}/gu, '').toLowerCase();
}

// ---------------------------------------------------------------------------
// Reading the bucket

function bucketOf(env) {
  return env[bindingNames.bucket];
}

function sessionsOf(env) {
  return env[bindingNames.sessions];
}

async function readJson(bucket, key) {
  const object = await bucket.get(key);
  if (object === null) return { state: 'missing' };
  try {
    return { state: 'read', value: JSON.parse(await object.text()) };
  } catch {
    return { state: 'unreadable' };
  }
}

// Whether a text may name a video's folder.
export function isFolderName(text) {
  return folderNamePattern.test(text);
}

// A folder path by the site's rule: trimmed of Unicode white space and of "/" at
// both ends, or null when it breaks the rule.
export function folderPath(text) {
  const trimmed = text.replace(/^\p{White_Space}+|\p{White_Space}+$/gu, '').replace(/^\/+|\/+$/g, '');
  if (trimmed === '') return '';
  if (!folderPathPattern.test(trimmed) || trimmed.startsWith('_')
    || trimmed.split('/').some((part) => part === '.' || part === '..')) return null;
  return trimmed;
}

// An absent folder path is the top; one that breaks the folder rule makes the site
// unreadable rather than pointing the pages at another folder.
function folderPathField(value) {
  if (value === undefined || value === null) return '';
  const path = typeof value === 'string' ? folderPath(value) : null;
  if (path === null) throw new SiteUnavailable('unreadable');
  return path;
}

export function validHost(value) {
  if (typeof value !== 'string') return null;
  const host = value.toLowerCase();
  return host.length <= 253 && hostnamePattern.test(host) ? host : null;
}

// An origin as the site's file holds it: scheme, host and a port without a leading
// zero, lower case, nothing after.
export function webOrigin(value) {
  if (typeof value !== 'string') return null;
  const origin = value.toLowerCase();
  const match = /^https?:\/\/([^:]*)(?::(.*))?$/s.exec(origin);
  if (!match || !validHost(match[1])) return null;
  const port = match[2];
  if (port !== undefined && !(/^[1-9][0-9]{0,4}$/.test(port) && Number(port) <= 65535)) return null;
  return origin;
}

function origins(value) {
  if (!Array.isArray(value)) return [];
  return [...new Set(value.map(webOrigin).filter((origin) => origin !== null))];
}

function pick(value, allowed, fallback) {
  return allowed.includes(value) ? value : fallback;
}

const fontNamePattern = /^[\p{L}\p{N} ._-]{1,80}$/u;

function isObject(value) {
  return value !== null && typeof value === 'object' && !Array.isArray(value);
}

// A linked stylesheet as the pages may load it: an https address of plain characters,
// and the https origins, in strict form, that it loads from. A stylesheet whose own
// origin is not among them would be refused by the page's policy, and is left out.
function linkedStylesheet(entry) {
  if (!isObject(entry) || typeof entry.url !== 'string' || !/^https:\/\/[^\s"'<>\\`]+$/.test(entry.url)) return null;
  let address;
  try {
    address = new URL(entry.url);
  } catch {
    return null;
  }
  if (address.protocol !== 'https:' || address.username || address.password) return null;
  const loadsFrom = origins(entry.origins).filter((origin) => origin.startsWith('https://'));
  return loadsFrom.includes(address.origin) ? { url: entry.url, origins: loadsFrom } : null;
}

// The site's settings, from the text of its file, as far as the pages need them. Like
// the application, the Worker reads what it knows with defaults, but never a file of
// a newer format half-way, nor one without what a site cannot do without.
export function siteSettingsFrom(text) {
  let file;
  try {
    file = JSON.parse(text);
  } catch {
    throw new SiteUnavailable('unreadable');
  }
  if (!isObject(file) || !Number.isInteger(file.version) || file.version < 1) throw new SiteUnavailable('unreadable');
  if (file.version > 1) throw new SiteUnavailable('newer');
  const mediaHost = validHost(file.media_host);
  const pageHost = validHost(file.page_host);
  const worker = isObject(file.worker) ? file.worker : {};
  if (!mediaHost || !pageHost || !templates.includes(file.template) || typeof worker.name !== 'string'
    || typeof worker.version !== 'string' || !semanticVersionPattern.test(worker.version)) {
    throw new SiteUnavailable('unreadable');
  }
  const embeds = file.embeds ?? { sites: 'none' };
  if (!isObject(embeds) || !embedSites.includes(embeds.sites)) throw new SiteUnavailable('unreadable');

  const home = isObject(file.home_page) ? file.home_page : {};
  const fonts = file.fonts && typeof file.fonts === 'object' ? file.fonts : {};
  const fontName = (name) => (typeof name === 'string' && fontNamePattern.test(name) ? name : null);
  const hosted = fonts.hosted && typeof fonts.hosted === 'object'
    && fontName(fonts.hosted.family) && typeof fonts.hosted.folder === 'string'
    && /^_fonts\/[A-Za-z0-9._-]+$/.test(fonts.hosted.folder) && !fonts.hosted.folder.includes('..')
    ? { family: fonts.hosted.family, folder: fonts.hosted.folder } : null;

  return {
    path: folderPathField(file.path),
    pagePath: folderPathField(file.page_path),
    mediaHost,
    pageHost,
    template: file.template,
    embeds: { sites: embeds.sites, origins: origins(embeds.origins) },
    homePage: {
      isPublic: typeof home.public === 'boolean' ? home.public : false,
      title: typeof home.title === 'string' ? home.title : '',
      showsSearch: typeof home.search === 'boolean' ? home.search : true,
      sort: pick(home.sort, ['newest', 'oldest', 'title'], 'newest'),
      posterSize: pick(home.poster_size, ['small', 'medium', 'large'], 'medium'),
    },
    fonts: { hosted, text: fontName(fonts.text), headings: fontName(fonts.headings), tooltips: fontName(fonts.tooltips) },
    stylesheets: (Array.isArray(file.stylesheets) ? file.stylesheets : []).map(linkedStylesheet).filter(Boolean),
    isPrivate: file.private === true,
  };
}

async function readSite(bucket) {
  const object = await bucket.get(siteKey);
  if (object === null) throw new SiteUnavailable('missing');
  return siteSettingsFrom(await object.text());
}

// A video's record as the pages use it. A folder with no record, or with one this
// Worker cannot read, still plays by its link under its folder name; an unreadable
// record is treated as unlisted, since nothing says the video may be found.
function videoFromRecord(folder, read) {
  const fallback = { title: folder, description: '', visibility: read.state === 'missing' ? 'public' : 'unlisted' };
  if (read.state !== 'read') return fallback;
  const record = read.value;
  if (record === null || typeof record !== 'object' || record.version !== 1 || typeof record.title !== 'string') {
    return { ...fallback, visibility: 'unlisted' };
  }
  const poster = record.poster && typeof record.poster.name === 'string'
    && /^[A-Za-z0-9_-][A-Za-z0-9._-]*$/.test(record.poster.name) ? record.poster : null;
  return {
    title: record.title.trim() || folder,
    description: typeof record.description === 'string' ? record.description.replace(/\r\n?/g, '\n').trim() : '',
    visibility: record.visibility === undefined || record.visibility === 'public' ? 'public' : 'unlisted',
    poster: poster ? {
      name: poster.name,
      width: Number.isInteger(poster.width) ? poster.width : null,
      height: Number.isInteger(poster.height) ? poster.height : null,
    } : null,
    duration: typeof record.duration === 'number' ? record.duration : null,
    width: Number.isInteger(record.width) && record.width > 0 ? record.width : null,
    height: Number.isInteger(record.height) && record.height > 0 ? record.height : null,
  };
}

const uiListKeys = ['controlPanelElements', 'topControlPanelElements', 'overflowMenuButtons', 'contextMenuElements', 'bigButtons'];
const uiRateKeys = ['playbackRates', 'fastForwardRates', 'rewindRates'];
const uiBooleanKeys = ['addSeekBar', 'customContextMenu', 'doubleClickForFullscreen', 'singleClickForPlayAndPause',
  'enableKeyboardPlaybackControls', 'enableFullscreenOnRotation', 'forceLandscapeOnFullscreen', 'enableTooltips',
  'seekOnTaps', 'alwaysShowVolumeBar', 'showUnbufferedStart', 'showRemainingTimeInPresentationTime',
  'showUIOnPaused', 'showBufferingSpinner'];
const uiNumberKeys = ['fadeDelay', 'closeMenusDelay', 'keyboardSeekDistance', 'keyboardLargeSeekDistance',
  'tapSeekDistance', 'seekButtonDistance'];
// A colour goes into the page's style, so only what cannot end or extend a declaration
// passes: a hex colour, a colour name, or rgb(), rgba(), hsl() or hsla() of plain
// numbers. The application checks with the same expression (testing/contract/player-colors.json).
const playerColorPattern = /^(?:#(?:[0-9a-fA-F]{3,4}|[0-9a-fA-F]{6}|[0-9a-fA-F]{8})|[a-zA-Z]{3,20}|(?:rgba?|hsla?)\( *[-+]?(?:\d+(?:\.\d+)?|\.\d+)(?:%|deg)?(?:(?: *[,/] *| +)[-+]?(?:\d+(?:\.\d+)?|\.\d+)%?){2,3} *\))$/;

export function playerColor(value) {
  return typeof value === 'string' && value.length <= 64 && playerColorPattern.test(value) ? value : null;
}

function colorGroup(value, keys) {
  if (!value || typeof value !== 'object') return null;
  const group = {};
  for (const key of keys) {
    const color = playerColor(value[key]);
    if (color) group[key] = color;
  }
  return Object.keys(group).length ? group : null;
}

// The player's options: only what the site changed, so that the player keeps its
// own defaults (which depend on the viewer's device) for everything else.
async function readPlayerSettings(bucket) {
  const read = await readJson(bucket, playerKey);
  const settings = { autoplay: false, muted: false, loop: false, ui: {}, colors: {} };
  const file = read.value;
  if (read.state !== 'read' || !file || typeof file !== 'object' || !Number.isInteger(file.version) || file.version > 1) {
    return settings;
  }
  for (const key of ['autoplay', 'muted', 'loop']) {
    if (typeof file[key] === 'boolean') settings[key] = file[key];
  }
  const ui = file.ui && typeof file.ui === 'object' ? file.ui : {};
  for (const key of uiListKeys) {
    if (Array.isArray(ui[key]) && ui[key].every((e) => typeof e === 'string')) settings.ui[key] = ui[key];
  }
  for (const key of uiRateKeys) {
    if (Array.isArray(ui[key]) && ui[key].every((e) => typeof e === 'number' && Number.isFinite(e))) settings.ui[key] = ui[key];
  }
  for (const key of uiBooleanKeys) {
    if (typeof ui[key] === 'boolean') settings.ui[key] = ui[key];
  }
  for (const key of uiNumberKeys) {
    if (typeof ui[key] === 'number' && Number.isFinite(ui[key])) settings.ui[key] = ui[key];
  }
  const seekBar = colorGroup(ui.seekBarColors, ['base', 'buffered', 'played', 'adBreaks', 'chapters']);
  if (seekBar) settings.ui.seekBarColors = seekBar;
  const volumeBar = colorGroup(ui.volumeBarColors, ['base', 'level']);
  if (volumeBar) settings.ui.volumeBarColors = volumeBar;
  settings.colors = colorGroup(file.colors, ['controls', 'button_background', 'fade', 'menu_background', 'menu_text']) ?? {};
  return settings;
}

// ---------------------------------------------------------------------------
// Links

function originOf(url, host) {
  return `${url.protocol}//${host}${url.port ? `:${url.port}` : ''}`;
}

function prefixed(folderPath, name) {
  return folderPath ? `${folderPath}/${name}` : name;
}

function pageLink(site, url, folder) {
  return `${originOf(url, site.pageHost)}/${prefixed(site.pagePath, folder)}`;
}

function homePath(site) {
  return site.pagePath ? `/${site.pagePath}/` : '/';
}

function mediaBase(site, url, folder) {
  return `${originOf(url, site.mediaHost)}/${prefixed(site.path, folder)}/`;
}

// ---------------------------------------------------------------------------
// Rendering

function siteName(site) {
  return site.homePage.title.trim() || site.pageHost;
}

function themeOf(site) {
  return site.template === 'custom' ? 'auto' : site.template;
}

function assetLink(path, version) {
  return `${path}?v=${encodeURIComponent(version)}`;
}

function siteStyleHead(site, url) {
  const lines = [];
  if (site.fonts.hosted) {
    lines.push(`<link rel="stylesheet" href="${escapeHtml(`${originOf(url, site.mediaHost)}/${site.fonts.hosted.folder}/font.css`)}">`);
  }
  for (const { url: href } of site.stylesheets) lines.push(`<link rel="stylesheet" href="${escapeHtml(href)}">`);
  const fontStack = (name) => `"${name}", system-ui, sans-serif`;
  const variables = [];
  if (site.fonts.text) variables.push(`--vorlen-font-text: ${fontStack(site.fonts.text)};`);
  if (site.fonts.headings) variables.push(`--vorlen-font-headings: ${fontStack(site.fonts.headings)};`);
  if (site.fonts.tooltips) variables.push(`--shaka-font-family: ${fontStack(site.fonts.tooltips)};`);
  // Font names are checked against a pattern without "<", so they cannot end the element.
  if (variables.length) lines.push(`<style>:root { ${variables.join(' ')} }</style>`);
  return lines;
}

function commonHead({ title, description, canonical, robots }) {
  const lines = [
    `<title>${escapeHtml(title)}</title>`,
    `<meta name="description" content="${escapeHtml(description)}">`,
    `<link rel="icon" href="${assetLink('/_assets/icon.svg', bundleVersion)}" type="image/svg+xml">`,
  ];
  if (canonical) lines.push(`<link rel="canonical" href="${escapeHtml(canonical)}">`);
  if (robots) lines.push(`<meta name="robots" content="${robots}">`);
  return lines;
}

function playerHead(site, url, video, link, folder) {
  const name = siteName(site);
  const summary = descriptionSummary(video.description) || `Watch “${video.title}” on ${name}.`;
  const poster = video.poster ? `${mediaBase(site, url, folder)}${video.poster.name}` : null;
  const lines = commonHead({
    title: video.title === name ? name : `${video.title} – ${name}`,
    description: summary,
    canonical: link,
    robots: video.visibility === 'public' ? null : 'noindex',
  });
  const meta = (attribute, key, value) => lines.push(`<meta ${attribute}="${key}" content="${escapeHtml(value)}">`);
  meta('property', 'og:type', 'video.other');
  meta('property', 'og:site_name', name);
  meta('property', 'og:title', video.title);
  meta('property', 'og:description', summary);
  meta('property', 'og:url', link);
  // A player card plays in the feed, which needs the embed to be open to every site.
  const playerCard = poster && site.embeds.sites === 'any';
  meta('name', 'twitter:card', playerCard ? 'player' : poster ? 'summary_large_image' : 'summary');
  if (playerCard) {
    meta('name', 'twitter:player', `${link}/embed`);
    meta('name', 'twitter:player:width', String(video.width ?? 1280));
    meta('name', 'twitter:player:height', String(video.height ?? 720));
  }
  meta('name', 'twitter:title', video.title);
  meta('name', 'twitter:description', summary);
  if (poster) {
    meta('property', 'og:image', poster);
    if (video.poster.width && video.poster.height) {
      meta('property', 'og:image:width', String(video.poster.width));
      meta('property', 'og:image:height', String(video.poster.height));
    }
    meta('property', 'og:image:alt', video.title);
    meta('name', 'twitter:image', poster);
  }
  if (video.duration) meta('property', 'video:duration', String(Math.round(video.duration)));
  lines.push(`<link rel="preconnect" href="${escapeHtml(originOf(url, site.mediaHost))}" crossorigin>`);
  lines.push(`<link rel="stylesheet" href="${assetLink('/_shaka/controls.css', playerVersion)}">`);
  lines.push(`<link rel="stylesheet" href="${assetLink('/_assets/player.css', bundleVersion)}">`);
  lines.push(...siteStyleHead(site, url));
  return lines.join('\n');
}

function playerHtml(site, url, video, folder, settings) {
  const base = mediaBase(site, url, folder);
  const styles = [];
  if (video.width && video.height) styles.push(`aspect-ratio: ${video.width} / ${video.height}`);
  const colorVariables = {
    controls: '--vorlen-controls',
    button_background: '--vorlen-button-background',
    fade: '--vorlen-fade',
    menu_background: '--vorlen-menu-background',
    menu_text: '--vorlen-menu-text',
  };
  for (const [key, variable] of Object.entries(colorVariables)) {
    if (settings.colors[key]) styles.push(`${variable}: ${settings.colors[key]}`);
  }
  const config = {
    dash: `${base}manifest.mpd`,
    hls: `${base}master.m3u8`,
    title: video.title,
    ui: settings.ui,
  };
  const attributes = ['playsinline', 'preload="metadata"', 'crossorigin="anonymous"'];
  if (video.poster) attributes.push(`poster="${escapeHtml(base + video.poster.name)}"`);
  if (settings.autoplay) attributes.push('autoplay');
  if (settings.muted || settings.autoplay) attributes.push('muted');
  if (settings.loop) attributes.push('loop');
  return [
    `<div class="vorlen-player" id="vorlen-player"${styles.length ? ` style="${escapeHtml(styles.join('; '))}"` : ''}>`,
    `<video id="vorlen-video" class="vorlen-video" ${attributes.join(' ')} aria-label="${escapeHtml(`Video: ${video.title}`)}"></video>`,
    '<p class="vorlen-player-message" id="vorlen-player-message" role="status" hidden></p>',
    '<noscript><p class="vorlen-player-message">This video needs JavaScript to play.</p></noscript>',
    '</div>',
    `<script type="application/json" id="vorlen-player-config">${scriptJson(config)}</script>`,
    `<script src="${assetLink('/_shaka/shaka-player.ui.js', playerVersion)}" defer></script>`,
    `<script src="${assetLink('/_assets/player.js', bundleVersion)}" defer></script>`,
  ].join('\n');
}

// Replaces the placeholders in one pass, so that a value that itself holds a
// placeholder's text (a title such as "{{player}}") is never expanded again.
function fillTemplate(template, values) {
  return template.replace(/\{\{(title|head|player|description|site|visibility)\}\}/g, (_, name) => values[name]);
}

// The frame of every page that is not a player page: the home page, the not-found
// page and the notice of a site that cannot be shown. It uses the site's theme.
function layoutPage({ theme, head, site, body, bodyClass }) {
  return `<!doctype html>
<html lang="en" data-theme="${theme}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="${theme === 'auto' ? 'light dark' : theme}">
<link rel="stylesheet" href="${assetLink('/_assets/site.css', bundleVersion)}">
${head}
</head>
<body class="vorlen-page ${bodyClass}">
<a class="skip-link" href="#main">Skip to content</a>
<header class="site-header"><div class="site-header-inner">${site}</div></header>
<main id="main" class="site-main">
${body}
</main>
</body>
</html>
`;
}

function siteHeaderLink(site) {
  return site.homePage.isPublic
    ? `<a class="site-name" href="${homePath(site)}">${escapeHtml(siteName(site))}</a>`
    : `<span class="site-name">${escapeHtml(siteName(site))}</span>`;
}

function notFoundHtml(site, url) {
  const name = siteName(site);
  const home = site.homePage.isPublic
    ? `<p><a class="button" href="${homePath(site)}">See all videos</a></p>` : '';
  return layoutPage({
    theme: themeOf(site),
    head: [...commonHead({ title: `Page not found – ${name}`, description: `This page does not exist on ${name}.`, robots: 'noindex' }),
      ...siteStyleHead(site, url)].join('\n'),
    site: siteHeaderLink(site),
    bodyClass: 'notice-page',
    body: `<section class="notice" aria-labelledby="notice-title">
<p class="notice-code" aria-hidden="true">404</p>
<h1 id="notice-title">This page does not exist</h1>
<p>The link may be mistyped, or the video may have been removed.</p>
${home}
</section>`,
  });
}

function unavailableHtml(reason) {
  const text = reason === 'newer'
    ? 'This site is being updated. Try again in a few minutes.'
    : 'This site is not ready yet. Try again later.';
  return layoutPage({
    theme: 'auto',
    head: commonHead({ title: 'Site unavailable', description: text, robots: 'noindex' }).join('\n'),
    site: '',
    bodyClass: 'notice-page',
    body: `<section class="notice" aria-labelledby="notice-title">
<h1 id="notice-title">Site unavailable</h1>
<p>${text}</p>
</section>`,
  });
}

// The catalogue's public videos; a signed-in viewer sees the unlisted ones too.
function catalogEntries(read, withUnlisted) {
  if (read.state !== 'read' || !read.value || !Array.isArray(read.value.videos) || read.value.version !== 1) return [];
  return read.value.videos.filter((entry) => entry && typeof entry === 'object'
    && typeof entry.folder === 'string' && isFolderName(entry.folder)
    && (entry.visibility === undefined || entry.visibility === 'public' || (withUnlisted && entry.visibility === 'unlisted')))
    .map((entry) => ({
      folder: entry.folder,
      title: typeof entry.title === 'string' && entry.title.trim() ? entry.title.trim() : entry.folder,
      description: typeof entry.description === 'string' ? entry.description : '',
      poster: typeof entry.poster === 'string' && /^[A-Za-z0-9_-][A-Za-z0-9._-]*$/.test(entry.poster) ? entry.poster : null,
      duration: typeof entry.duration === 'number' ? entry.duration : null,
      created: typeof entry.created === 'string' ? entry.created : null,
      time: Date.parse(entry.created ?? entry.updated ?? '') || 0,
    }));
}

const titleCollator = new Intl.Collator('en', { sensitivity: 'base', numeric: true });

function sortedEntries(entries, sort) {
  const byFolder = (a, b) => (a.folder < b.folder ? -1 : a.folder > b.folder ? 1 : 0);
  const order = {
    newest: (a, b) => b.time - a.time || byFolder(a, b),
    oldest: (a, b) => a.time - b.time || byFolder(a, b),
    title: (a, b) => titleCollator.compare(a.title, b.title) || byFolder(a, b),
  }[sort];
  return [...entries].sort(order);
}

function signOutHtml(viewer) {
  return `<form class="sign-out" method="post" action="/_signout">
<span>Signed in as ${escapeHtml(viewer.name)}</span>
<button type="submit">Sign out</button>
</form>`;
}

function homeHtml(site, url, entries, query, viewer) {
  const name = siteName(site);
  const terms = folded(query).split(/\s+/).filter(Boolean);
  const shown = terms.length
    ? entries.filter((e) => terms.every((t) => folded(`${e.title} ${e.description}`).includes(t)))
    : entries;
  const cards = sortedEntries(shown, site.homePage.sort).map((entry) => {
    const poster = entry.poster
      ? `<img src="${escapeHtml(mediaBase(site, url, entry.folder) + entry.poster)}" alt="" loading="lazy" decoding="async">`
      : '<span class="card-poster-empty" aria-hidden="true"></span>';
    const duration = formatDuration(entry.duration);
    const date = formatDate(entry.created);
    return `<li class="card">
<a class="card-link" href="/${escapeHtml(prefixed(site.pagePath, entry.folder))}">
<span class="card-poster">${poster}${duration ? `<span class="card-duration" aria-hidden="true">${duration}</span>` : ''}</span>
<span class="card-title">${escapeHtml(entry.title)}${duration ? `<span class="visually-hidden">, ${spokenDuration(entry.duration)}</span>` : ''}</span>
</a>
${date ? `<time class="card-date" datetime="${escapeHtml(entry.created)}">${date}</time>` : ''}
</li>`;
  });
  const search = site.homePage.showsSearch ? `<form class="search" role="search" method="get" action="${homePath(site)}">
<label class="visually-hidden" for="search-input">Search videos</label>
<input id="search-input" type="search" name="q" value="${escapeHtml(query)}" placeholder="Search videos" autocomplete="off">
<button type="submit">Search</button>
</form>` : '';
  let status;
  if (entries.length === 0) status = '<p class="empty">No videos yet.</p>';
  else if (shown.length === 0) status = `<p class="empty" role="status">No videos match “${escapeHtml(query.trim())}”. <a href="${homePath(site)}">Show all videos</a></p>`;
  else if (terms.length) status = `<p class="result-count" role="status">${shown.length} ${shown.length === 1 ? 'video matches' : 'videos match'} “${escapeHtml(query.trim())}”. <a href="${homePath(site)}">Show all videos</a></p>`;
  else status = '';
  const count = entries.length === 1 ? '1 video' : `${entries.length} videos`;
  return layoutPage({
    theme: themeOf(site),
    head: [...commonHead({
      title: name,
      description: `${count} from ${name}.`,
      canonical: `${originOf(url, site.pageHost)}${homePath(site)}`,
      robots: terms.length ? 'noindex' : null,
    }), ...siteStyleHead(site, url)].join('\n'),
    site: `<span class="site-name">${escapeHtml(name)}</span>`,
    bodyClass: 'home-page',
    body: `<div class="home-heading">
<div class="home-title">
<h1>${escapeHtml(name)}</h1>
<p class="home-count">${count}</p>
</div>
${search}
</div>
${viewer ? signOutHtml(viewer) : ''}
${status}
${cards.length ? `<ul class="cards cards-${site.homePage.posterSize}">\n${cards.join('\n')}\n</ul>` : ''}`,
  });
}

function embedHtml(site, url, video, folder, settings, link) {
  return `<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
${commonHead({ title: video.title, description: descriptionSummary(video.description) || `Watch “${video.title}”.`, canonical: link, robots: 'noindex' }).join('\n')}
<link rel="stylesheet" href="${assetLink('/_shaka/controls.css', playerVersion)}">
<link rel="stylesheet" href="${assetLink('/_assets/player.css', bundleVersion)}">
${siteStyleHead(site, url).join('\n')}
</head>
<body class="vorlen-embed">
${playerHtml(site, url, video, folder, settings)}
</body>
</html>
`;
}

// ---------------------------------------------------------------------------
// Responses

function frameAncestors(embeds) {
  if (embeds.sites === 'any') return '*';
  if (embeds.sites === 'listed' && embeds.origins.length) return embeds.origins.join(' ');
  return "'none'";
}

// Pages that this Worker writes whole load scripts only from the bundle and media only
// from the media host, so that a slip in escaping still runs nothing. A custom
// template is the site's own page and may load what it likes: it gets the framing
// rule alone.
function contentPolicy(site, url, ancestors = "'self'") {
  const media = originOf(url, site.mediaHost);
  // Styles and fonts come from the site and from the origins of its linked stylesheets only.
  const sources = [...new Set([media, ...site.stylesheets.flatMap((sheet) => sheet.origins)])].join(' ');
  return [
    "default-src 'self'",
    "script-src 'self'",
    `style-src 'self' 'unsafe-inline' ${sources}`,
    `font-src 'self' ${sources}`,
    `img-src 'self' data: blob: ${media}`,
    `media-src 'self' blob: ${media}`,
    `connect-src 'self' ${media}`,
    "object-src 'none'",
    "base-uri 'none'",
    "form-action 'self'",
    `frame-ancestors ${ancestors}`,
  ].join('; ');
}

function htmlResponse(body, status, extraHeaders = {}) {
  return new Response(body, {
    status,
    headers: {
      'Content-Type': 'text/html; charset=utf-8',
      'Cache-Control': `public, max-age=${pageCacheSeconds}`,
      'X-Content-Type-Options': 'nosniff',
      'Referrer-Policy': 'strict-origin-when-cross-origin',
      'Content-Security-Policy': "default-src 'self'; frame-ancestors 'self'",
      ...extraHeaders,
    },
  });
}

async function videoPage(site, env, url, folder, kind) {
  const bucket = bucketOf(env);
  const folderKey = prefixed(site.path, folder);
  const [playable, record, settings] = await Promise.all([
    bucket.head(`${folderKey}/master.m3u8`),
    readJson(bucket, `${folderKey}/video.json`),
    readPlayerSettings(bucket),
  ]);
  if (playable === null) return null;
  const video = videoFromRecord(folder, record);
  const link = pageLink(site, url, folder);
  if (kind === 'embed') {
    return htmlResponse(embedHtml(site, url, video, folder, settings, link), 200, {
      'Content-Security-Policy': contentPolicy(site, url, frameAncestors(site.embeds)),
    });
  }
  const custom = site.template === 'custom' ? await bucket.get(templateKey) : null;
  const template = custom ? await custom.text() : builtInTemplates[themeOf(site)];
  const page = fillTemplate(template, {
    title: escapeHtml(video.title),
    head: playerHead(site, url, video, link, folder),
    player: playerHtml(site, url, video, folder, settings),
    description: descriptionHtml(video.description),
    site: escapeHtml(siteName(site)),
    visibility: video.visibility,
  });
  if (!custom) return htmlResponse(page, 200, { 'Content-Security-Policy': contentPolicy(site, url) });
  // A custom template changes in the bucket, not with the Worker: its pages are never
  // kept, neither here nor in the browser, so that a saved template shows on the next load.
  return htmlResponse(page, 200, { 'Content-Security-Policy': "frame-ancestors 'self'", 'Cache-Control': 'no-cache' });
}

function notFound(site, url) {
  return htmlResponse(notFoundHtml(site, url), 404, { 'Content-Security-Policy': contentPolicy(site, url) });
}

// ---------------------------------------------------------------------------
// Viewers: the invites, passkeys and sessions of the people who may watch. A
// viewer's file is written by the application and, when the invite is redeemed,
// by this Worker; nothing else is stored but the sessions.

const viewersFolder = '_vorlen/viewers/';
const sessionCookie = 'vorlen_session';
const challengeSeconds = 300;
const sessionSeconds = 30 * 24 * 60 * 60;
const viewerIdPattern = /^[0-9a-f]{32}$/;
const randomTokenPattern = /^[A-Za-z0-9_-]{43}$/;  // 32 random bytes in base64url
const invitePathPattern = /^\/_invite\/([^/]*)(\/options)?$/;
const es256 = -7;
const userPresentFlag = 0x01;
const attestedCredentialFlag = 0x40;
const utf8 = new TextEncoder();

function base64Url(bytes) {
  let binary = '';
  for (const byte of new Uint8Array(bytes)) binary += String.fromCharCode(byte);
  return btoa(binary).replace(/\+/g, '-').replace(/\//g, '_').replace(/=+$/, '');
}

// The bytes of a base64url text, or null when it is none.
function fromBase64Url(text) {
  if (typeof text !== 'string' || !/^[A-Za-z0-9_-]*$/.test(text) || text.length % 4 === 1) return null;
  const binary = atob(text.replace(/-/g, '+').replace(/_/g, '/'));
  return Uint8Array.from(binary, (c) => c.charCodeAt(0));
}

function hexOf(bytes) {
  return [...new Uint8Array(bytes)].map((b) => b.toString(16).padStart(2, '0')).join('');
}

async function sha256(bytes) {
  return new Uint8Array(await crypto.subtle.digest('SHA-256', bytes));
}

// Takes the same time for any two texts of one length, so that a secret cannot be
// found one byte at a time.
function sameBytes(a, b) {
  if (a.length !== b.length) return false;
  let difference = 0;
  for (let i = 0; i < a.length; i += 1) difference |= a[i] ^ b[i];
  return difference === 0;
}

function concatenated(a, b) {
  const out = new Uint8Array(a.length + b.length);
  out.set(a);
  out.set(b, a.length);
  return out;
}

function isoSeconds(time) {
  return new Date(time).toISOString().replace(/\.\d+Z$/, 'Z');
}

function viewerKey(id) {
  return `${viewersFolder}${id}.json`;
}

// A viewer file as the application writes it, or null when it cannot be used: an
// invite's hash must be lowercase hex, as the application requires too.
export function viewerFrom(text) {
  let file;
  try {
    file = JSON.parse(text);
  } catch {
    return null;
  }
  if (!isObject(file) || file.version !== 1 || typeof file.name !== 'string' || !file.name.trim()
    || isObject(file.invite) === isObject(file.passkey)) return null;
  const name = file.name.trim();
  if (file.invite) {
    const { hash, expires } = file.invite;
    const end = typeof expires === 'string' ? Date.parse(expires) : NaN;
    if (typeof hash !== 'string' || !/^[0-9a-f]{64}$/.test(hash) || Number.isNaN(end)) return null;
    return { file, name, invite: { hash, expires: end } };
  }
  const { id, publicKey } = file.passkey;
  if (typeof id !== 'string' || !id || typeof publicKey !== 'string' || !publicKey) return null;
  return { file, name, passkey: { id, publicKey } };
}

async function readViewer(bucket, id) {
  if (typeof id !== 'string' || !viewerIdPattern.test(id)) return null;
  const object = await bucket.get(viewerKey(id));
  if (object === null) return null;
  const viewer = viewerFrom(await object.text());
  return viewer && { ...viewer, id, etag: object.etag };
}

// Where an invite link stands. A wrong secret reads as an unknown link, so that a
// guess learns nothing; a used invite has no secret left to compare.
export async function inviteState(viewer, secret, now) {
  if (!viewer || typeof secret !== 'string' || !randomTokenPattern.test(secret)) return 'unknown';
  if (viewer.passkey) return 'used';
  const hash = utf8.encode(hexOf(await sha256(utf8.encode(secret))));
  if (!sameBytes(hash, utf8.encode(viewer.invite.hash))) return 'unknown';
  return viewer.invite.expires <= now ? 'expired' : 'valid';
}

// The viewer's file with the invite replaced by the passkey, in the application's
// own form: pretty-printed with sorted keys.
export function redeemedFile(file, passkey, now) {
  const { invite, ...kept } = file;
  const sorted = (value) => (isObject(value)
    ? Object.fromEntries(Object.keys(value).sort().map((key) => [key, sorted(value[key])]))
    : value);
  return JSON.stringify(sorted({ ...kept, passkey: { ...passkey, created: isoSeconds(now) } }), null, 2);
}

// Challenges are kept nowhere: each carries its purpose, its viewer (for a new
// passkey), its end and a random part, under an HMAC with the site's challenge key.
async function challengeMac(key, text) {
  const hmac = await crypto.subtle.importKey('raw', utf8.encode(key), { name: 'HMAC', hash: 'SHA-256' }, false, ['sign']);
  return new Uint8Array(await crypto.subtle.sign('HMAC', hmac, utf8.encode(text)));
}

export async function makeChallenge(key, purpose, viewerId, now) {
  const nonce = base64Url(crypto.getRandomValues(new Uint8Array(16)));
  const text = `${purpose}.${viewerId}.${Math.floor(now / 1000) + challengeSeconds}.${nonce}`;
  return base64Url(utf8.encode(`${text}.${base64Url(await challengeMac(key, text))}`));
}

export async function challengeValid(key, challenge, purpose, viewerId, now) {
  const bytes = fromBase64Url(challenge);
  if (!bytes) return false;
  const parts = new TextDecoder().decode(bytes).split('.');
  if (parts.length !== 5) return false;
  const given = fromBase64Url(parts[4]);
  const expected = await challengeMac(key, parts.slice(0, 4).join('.'));
  return given !== null && sameBytes(given, expected) && parts[0] === purpose && parts[1] === viewerId
    && /^[0-9]{1,12}$/.test(parts[2]) && Number(parts[2]) * 1000 > now;
}

// What the browser says it signed: the kind of ceremony, the page it happened on and
// one of this site's challenges for this purpose.
async function clientDataValid(bytes, { type, origin, key, purpose, viewerId, now }) {
  let data;
  try {
    data = JSON.parse(new TextDecoder('utf-8', { fatal: true }).decode(bytes));
  } catch {
    return false;
  }
  return isObject(data) && data.type === type && data.origin === origin && data.crossOrigin !== true
    && await challengeValid(key, data.challenge, purpose, viewerId, now);
}

// The authenticator's data: made for this site's name, with the person present.
async function authenticatorDataValid(bytes, rpId) {
  return bytes.length >= 37 && sameBytes(bytes.subarray(0, 32), await sha256(utf8.encode(rpId)))
    && (bytes[32] & userPresentFlag) !== 0;
}

// WebAuthn gives an ECDSA signature in DER; WebCrypto verifies r and s side by
// side, 32 bytes each.
export function rawSignature(der) {
  if (der.length < 8 || der[0] !== 0x30 || der[1] !== der.length - 2) return null;
  const raw = new Uint8Array(64);
  let at = 2;
  for (const offset of [0, 32]) {
    const length = der[at + 1];
    if (der[at] !== 0x02 || length === 0 || at + 2 + length > der.length) return null;
    let value = der.subarray(at + 2, at + 2 + length);
    while (value.length > 32 && value[0] === 0) value = value.subarray(1);
    if (value.length > 32) return null;
    raw.set(value, offset + 32 - value.length);
    at += 2 + length;
  }
  return at === der.length ? raw : null;
}

async function publicKeyOf(spki) {
  try {
    return await crypto.subtle.importKey('spki', spki, { name: 'ECDSA', namedCurve: 'P-256' }, false, ['verify']);
  } catch {
    return null;
  }
}

// The passkey of a registration (the browser's public key in SPKI, base64url), or
// null when it was not made for this invite on this site.
export async function registeredPasskey(body, { viewerId, origin, rpId, key, now }) {
  if (!isObject(body) || body.publicKeyAlgorithm !== es256) return null;
  const [credentialId, clientData, authData, publicKey] = [body.id, body.clientDataJSON, body.authenticatorData, body.publicKey]
    .map(fromBase64Url);
  if (!credentialId?.length || !clientData || !authData || !publicKey) return null;
  if (!await clientDataValid(clientData, { type: 'webauthn.create', origin, key, purpose: 'register', viewerId, now })
    || !await authenticatorDataValid(authData, rpId) || (authData[32] & attestedCredentialFlag) === 0) return null;
  // The attested credential data (after 16 bytes of AAGUID) names the credential the browser reports.
  const idLength = authData.length >= 55 ? (authData[53] << 8) | authData[54] : -1;
  if (idLength < 0 || authData.length < 55 + idLength || !sameBytes(authData.subarray(55, 55 + idLength), credentialId)) return null;
  if (!await publicKeyOf(publicKey)) return null;
  const transports = Array.isArray(body.transports)
    ? body.transports.filter((t) => typeof t === 'string' && /^[a-z-]{1,32}$/.test(t)).slice(0, 8) : [];
  return { id: base64Url(credentialId), publicKey: base64Url(publicKey), transports };
}

// Whether a sign-in was signed by the viewer's passkey, for this site, just now.
export async function assertionValid(body, viewer, { origin, rpId, key, now }) {
  if (!isObject(body) || !viewer?.passkey || body.id !== viewer.passkey.id) return false;
  const [clientData, authData, signature, spki] = [body.clientDataJSON, body.authenticatorData, body.signature, viewer.passkey.publicKey]
    .map(fromBase64Url);
  if (!clientData || !authData || !signature || !spki) return false;
  if (!await clientDataValid(clientData, { type: 'webauthn.get', origin, key, purpose: 'signin', viewerId: '', now })
    || !await authenticatorDataValid(authData, rpId)) return false;
  const raw = rawSignature(signature);
  const publicKey = await publicKeyOf(spki);
  if (!raw || !publicKey) return false;
  return crypto.subtle.verify({ name: 'ECDSA', hash: 'SHA-256' }, publicKey, raw, concatenated(authData, await sha256(clientData)));
}

function sessionToken(request) {
  for (const part of (request.headers.get('Cookie') ?? '').split(';')) {
    const [name, value] = part.trim().split('=');
    if (name === sessionCookie && value) return value;
  }
  return null;
}

async function sessionKey(token) {
  return hexOf(await sha256(utf8.encode(token)));
}

function cookie(url, value, maxAge) {
  return `${sessionCookie}=${value}; Path=/; Max-Age=${maxAge}; HttpOnly; SameSite=Lax${url.protocol === 'https:' ? '; Secure' : ''}`;
}

// Stores only the token's hash, so that a read of the namespace opens no session.
async function startSession(env, url, viewer, credentialId) {
  const token = base64Url(crypto.getRandomValues(new Uint8Array(32)));
  await sessionsOf(env).put(await sessionKey(token), JSON.stringify({ viewer: viewer.id, credential: credentialId }),
    { expirationTtl: sessionSeconds });
  return cookie(url, token, sessionSeconds);
}

// The viewer of a session while their file still holds the passkey that started it:
// deleting the viewer, or a new invite, ends the session at once.
async function signedInViewer(env, token) {
  if (!token || !randomTokenPattern.test(token)) return null;
  let session;
  try {
    session = await sessionsOf(env).get(await sessionKey(token), 'json');
  } catch {
    return null;
  }
  if (!isObject(session)) return null;
  const viewer = await readViewer(bucketOf(env), session.viewer);
  return viewer?.passkey && viewer.passkey.id === session.credential ? viewer : null;
}

// Where to go after signing in: a path of this host, never another site.
export function localPath(next, fallback) {
  return typeof next === 'string' && next.length <= 2000 && /^\/(?![/\\])[^\\\u0000-\u0020\u007f]*$/.test(next)
    ? next : fallback;
}

function isViewerPath(path) {
  return path === '/_signin' || path === '/_signin/options' || path === '/_signout' || path.startsWith('/_invite/');
}

function signInAddress(site, url, next) {
  return `${originOf(url, site.pageHost)}/_signin?next=${encodeURIComponent(next)}`;
}

function viewerPageHtml(site, url, { title, body, config }) {
  return layoutPage({
    theme: themeOf(site),
    head: [...commonHead({ title: `${title} – ${siteName(site)}`, description: title, robots: 'noindex' }),
      ...siteStyleHead(site, url)].join('\n'),
    site: siteHeaderLink(site),
    bodyClass: 'viewer-page',
    body: `<section class="notice viewer-panel" aria-labelledby="notice-title">
${body}
${config ? `<p class="viewer-status" id="viewer-status" role="status"></p>
<noscript><p>This page needs JavaScript to use a passkey.</p></noscript>
</section>
<script type="application/json" id="vorlen-viewer-config">${scriptJson(config)}</script>
<script src="${assetLink('/_assets/viewer.js', bundleVersion)}" defer></script>` : '</section>'}`,
  });
}

function viewerPage(site, url, status, page) {
  return htmlResponse(viewerPageHtml(site, url, page), status, { 'Content-Security-Policy': contentPolicy(site, url) });
}

function signInPage(site, url, next) {
  const name = escapeHtml(siteName(site));
  return viewerPage(site, url, 200, {
    title: 'Sign in',
    body: `<h1 id="notice-title">Sign in to watch</h1>
<p>The videos of ${name} are for invited viewers. Sign in with the passkey that you made with your invite.</p>
<p><button type="button" class="button" id="viewer-action">Sign in with a passkey</button></p>`,
    config: { mode: 'signin', options: '/_signin/options', submit: `/_signin?next=${encodeURIComponent(next)}` },
  });
}

const invitePages = {
  unknown: [404, 'This invite link does not work', 'Check that you opened the whole link. If it still does not work, ask the person who sent it for a new one.'],
  used: [410, 'This invite was used already', 'A passkey was made with it. Sign in with that passkey, or ask the person who sent the invite for a new one.'],
  expired: [410, 'This invite has expired', 'Invite links work for seven days. Ask the person who sent it for a new one.'],
};

function invitePage(site, url, { state, viewer, link, next }) {
  if (state !== 'valid') {
    const [status, title, text] = invitePages[state];
    const signIn = state === 'used' ? '<p><a class="button" href="/_signin">Sign in</a></p>' : '';
    return viewerPage(site, url, status, { title, body: `<h1 id="notice-title">${title}</h1>\n<p>${text}</p>\n${signIn}` });
  }
  return viewerPage(site, url, 200, {
    title: 'Your invite',
    body: `<h1 id="notice-title">Welcome, ${escapeHtml(viewer.name)}</h1>
<p>You are invited to watch the videos of ${escapeHtml(siteName(site))}. Make a passkey on this device: it signs you in from now on, without a password. The invite link works only once.</p>
<p><button type="button" class="button" id="viewer-action">Make a passkey</button></p>`,
    config: { mode: 'invite', options: `${link}/options`, submit: `${link}?next=${encodeURIComponent(next)}` },
  });
}

function jsonResponse(value, status = 200, headers = {}) {
  return new Response(JSON.stringify(value), {
    status, headers: { 'Content-Type': 'application/json; charset=utf-8', 'X-Content-Type-Options': 'nosniff', ...headers },
  });
}

const signInFailure = 'This passkey does not sign in to this site. Use the passkey that you made with your invite, or ask for a new invite.';

async function requestBody(request) {
  try {
    return await request.json();
  } catch {
    return null;
  }
}

const methodNotAllowed = (allowed) => new Response('Method not allowed', { status: 405, headers: { Allow: allowed } });

async function signInRoute(request, env, url, site, check, next) {
  if (url.pathname === '/_signin/options') {
    if (request.method !== 'POST') return methodNotAllowed('POST');
    return jsonResponse({
      challenge: await makeChallenge(check.key, 'signin', '', check.now),
      rpId: check.rpId,
      timeout: challengeSeconds * 1000,
      userVerification: 'preferred',
    });
  }
  if (request.method !== 'POST') return signInPage(site, url, next);
  const body = await requestBody(request);
  const handle = fromBase64Url(body?.userHandle);
  const viewer = handle?.length === 16 ? await readViewer(bucketOf(env), hexOf(handle)) : null;
  if (!await assertionValid(body, viewer, check)) return jsonResponse({ error: signInFailure }, 401);
  return jsonResponse({ next }, 200, { 'Set-Cookie': await startSession(env, url, viewer, viewer.passkey.id) });
}

async function inviteRoute(request, env, url, site, check, next) {
  const [, link = '', options] = invitePathPattern.exec(url.pathname) ?? [];
  const [id, secret] = link.split('.');
  const viewer = await readViewer(bucketOf(env), id);
  const state = await inviteState(viewer, secret, check.now);
  if (request.method !== 'POST') {
    return options ? methodNotAllowed('POST') : invitePage(site, url, { state, viewer, link: `/_invite/${link}`, next });
  }
  if (state !== 'valid') {
    const [status, title, text] = invitePages[state];
    return jsonResponse({ error: `${title}. ${text}` }, status);
  }
  if (options) {
    return jsonResponse({
      challenge: await makeChallenge(check.key, 'register', viewer.id, check.now),
      rp: { id: check.rpId, name: siteName(site) },
      user: { id: base64Url(Uint8Array.from(viewer.id.match(/../g), (h) => parseInt(h, 16))), name: viewer.name, displayName: viewer.name },
      pubKeyCredParams: [{ type: 'public-key', alg: es256 }],
      authenticatorSelection: { residentKey: 'required', requireResidentKey: true, userVerification: 'preferred' },
      attestation: 'none',
      timeout: challengeSeconds * 1000,
    });
  }
  const passkey = await registeredPasskey(await requestBody(request), { ...check, viewerId: viewer.id });
  if (!passkey) return jsonResponse({ error: 'The passkey was not made for this invite on this site. Reload the page and try again.' }, 400);
  // Only one redeem can win, and a rename by the application in between makes this one lose.
  const written = await bucketOf(env).put(viewerKey(viewer.id), redeemedFile(viewer.file, passkey, check.now), {
    onlyIf: { etagMatches: viewer.etag },
    httpMetadata: { contentType: 'application/json', cacheControl: 'no-cache' },
  });
  if (written === null) {
    return jsonResponse({ error: 'The invite changed while the passkey was made. Reload the page to see whether it still works.' }, 409);
  }
  return jsonResponse({ next }, 200, { 'Set-Cookie': await startSession(env, url, viewer, passkey.id) });
}

// The sign-in and invite pages, their passkey steps, and signing out. Every POST
// must come from the site's own pages.
async function viewerRoute(request, env, url, site, token) {
  const origin = originOf(url, site.pageHost);
  if (request.method === 'POST' && request.headers.get('Origin') !== origin) return jsonResponse({ error: 'Forbidden' }, 403);
  if (url.pathname === '/_signout') {
    if (request.method !== 'POST') return methodNotAllowed('POST');
    if (token && randomTokenPattern.test(token)) await sessionsOf(env).delete(await sessionKey(token));
    return new Response(null, { status: 303, headers: { Location: `${origin}/_signin`, 'Set-Cookie': cookie(url, '', 0) } });
  }
  const check = { origin, rpId: site.pageHost, key: env[bindingNames.challengeKey], now: Date.now() };
  const next = localPath(url.searchParams.get('next'), homePath(site));
  return url.pathname.startsWith('/_invite/')
    ? inviteRoute(request, env, url, site, check, next)
    : signInRoute(request, env, url, site, check, next);
}

async function route(request, env, url, site, token) {
  if (isViewerPath(url.pathname)) return viewerRoute(request, env, url, site, token);
  const viewer = token ? await signedInViewer(env, token) : null;
  const path = decodeURIComponent(url.pathname);
  if (site.isPrivate && !viewer) return Response.redirect(signInAddress(site, url, url.pathname + url.search), 302);
  const home = homePath(site);
  if (path === home || (site.pagePath && path === `/${site.pagePath}`) || (site.pagePath && path === '/')) {
    // The home page of a private site lists its videos for its viewers.
    if (!site.homePage.isPublic && !site.isPrivate) return notFound(site, url);
    if (path !== home) return Response.redirect(`${originOf(url, site.pageHost)}${home}${url.search}`, 301);
    const entries = catalogEntries(await readJson(bucketOf(env), catalogKey), viewer !== null);
    const query = (url.searchParams.get('q') ?? '').slice(0, 200);
    return htmlResponse(homeHtml(site, url, entries, query, viewer), 200, { 'Content-Security-Policy': contentPolicy(site, url) });
  }
  const pagePrefix = site.pagePath ? `/${site.pagePath}/` : '/';
  if (path.startsWith(pagePrefix)) {
    const parts = path.slice(pagePrefix.length).split('/');
    const [folder] = parts;
    if (isFolderName(folder)) {
      let kind = null;
      if (parts.length === 1) kind = 'page';
      else if (parts.length === 2 && parts[1] === 'embed') kind = 'embed';
      else if (parts.length === 2 && parts[1] === '') {
        return Response.redirect(pageLink(site, url, folder) + url.search, 301);
      }
      if (kind) {
        const response = await videoPage(site, env, url, folder, kind);
        if (response) return response;
      }
    }
  }
  return notFound(site, url);
}

// A response that depends on who asks: neither the edge nor the browser keeps it.
function personal(response) {
  const copy = new Response(response.body, response);
  copy.headers.set('Cache-Control', 'private, no-store');
  return copy;
}

// Public pages are kept briefly in the edge cache: a view costs no bucket reads but
// the site's settings then, and a change shows within a minute. The cache's key is the
// address alone, so a page of a private site, or one asked for with a session, is
// neither kept nor taken from it.
async function pageFor(request, env, ctx) {
  const url = new URL(request.url);
  const token = sessionToken(request);
  const site = await readSite(bucketOf(env));
  if (site.isPrivate || token !== null || isViewerPath(url.pathname)) {
    return personal(await route(request, env, url, site, token));
  }
  const cache = typeof caches !== 'undefined' ? caches.default : null;
  const cacheKey = new Request(request.url, { method: 'GET' });
  const cached = cache ? await cache.match(cacheKey) : undefined;
  if (cached) return cached;
  const response = await route(request, env, url, site, null);
  const keeps = response.headers.get('Cache-Control') === `public, max-age=${pageCacheSeconds}`;
  if (cache && keeps && (response.status === 200 || response.status === 404)) {
    ctx.waitUntil(cache.put(cacheKey, response.clone()));
  }
  return response;
}

async function respond(request, env, ctx) {
  try {
    return await pageFor(request, env, ctx);
  } catch (error) {
    if (error instanceof SiteUnavailable) {
      return htmlResponse(unavailableHtml(error.reason), 503, { 'Cache-Control': 'no-store', 'Retry-After': '60' });
    }
    if (error instanceof URIError) {
      return new Response('Bad request', { status: 400, headers: { 'Content-Type': 'text/plain; charset=utf-8' } });
    }
    console.error('page failed', error && error.stack ? error.stack : String(error));
    return new Response('The page could not be shown. Try again later.', {
      status: 500, headers: { 'Content-Type': 'text/plain; charset=utf-8', 'Cache-Control': 'no-store' },
    });
  }
}

export default {
  async fetch(request, env, ctx) {
    const reading = request.method === 'GET' || request.method === 'HEAD';
    if (!reading && !(request.method === 'POST' && isViewerPath(new URL(request.url).pathname))) {
      return new Response('Method not allowed', { status: 405, headers: { Allow: 'GET, HEAD' } });
    }
    const response = await respond(request, env, ctx);
    return request.method === 'HEAD' ? new Response(null, response) : response;
  },
};
