// The page Worker of a Vorlen site: player pages, embeds, the home page and the
// not-found page, rendered from the objects in the site's bucket. It never hands
// out a bucket object itself: the media host serves the media, this Worker only HTML.

// Filled in by worker/build.mjs from templates/ and manifest.json.
const builtInTemplates = /* built-in templates */ {};
const bundleVersion = /* bundle version */ '0.0.0';
const playerVersion = /* player version */ '0.0.0';

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

function catalogEntries(read) {
  if (read.state !== 'read' || !read.value || !Array.isArray(read.value.videos) || read.value.version !== 1) return [];
  return read.value.videos.filter((entry) => entry && typeof entry === 'object'
    && typeof entry.folder === 'string' && isFolderName(entry.folder)
    && (entry.visibility === undefined || entry.visibility === 'public'))
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

function homeHtml(site, url, entries, query) {
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
  const bucket = env.BUCKET;
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

async function route(env, url) {
  const site = await readSite(env.BUCKET);
  const path = decodeURIComponent(url.pathname);
  const home = homePath(site);
  if (path === home || (site.pagePath && path === `/${site.pagePath}`) || (site.pagePath && path === '/')) {
    if (!site.homePage.isPublic) return notFound(site, url);
    if (path !== home) return Response.redirect(`${originOf(url, site.pageHost)}${home}${url.search}`, 301);
    const entries = catalogEntries(await readJson(env.BUCKET, catalogKey));
    const query = (url.searchParams.get('q') ?? '').slice(0, 200);
    return htmlResponse(homeHtml(site, url, entries, query), 200, { 'Content-Security-Policy': contentPolicy(site, url) });
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

async function respond(url, env) {
  try {
    return await route(env, url);
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
    if (request.method !== 'GET' && request.method !== 'HEAD') {
      return new Response('Method not allowed', { status: 405, headers: { Allow: 'GET, HEAD' } });
    }
    // Pages are kept briefly in the edge cache: a view costs no bucket reads then,
    // and a change shows within a minute. Pages marked otherwise are not kept.
    const cache = typeof caches !== 'undefined' ? caches.default : null;
    const cacheKey = new Request(request.url, { method: 'GET' });
    let response = cache ? await cache.match(cacheKey) : undefined;
    if (!response) {
      response = await respond(new URL(request.url), env);
      const keeps = response.headers.get('Cache-Control') === `public, max-age=${pageCacheSeconds}`;
      if (cache && keeps && (response.status === 200 || response.status === 404)) {
        ctx.waitUntil(cache.put(cacheKey, response.clone()));
      }
    }
    return request.method === 'HEAD' ? new Response(null, response) : response;
  },
};
