'use strict';
// Draws the mesh from the daemon's JSON. Its content comes from devices of the network: it reaches the page as text
// nodes and as numbers, never as markup, names of classes or addresses.
(() => {
const REFRESH = 1000;         // ms between two reads of a served file
const SILENCE = 30000;        // ms without a newer file before the page shows it as outdated
const CARD = 320, COMPACT = 180, GAP_X = 36, GAP_Y = 22;  // px
const LIST = 560;             // px, the widest card where columns do not fit
const INDENT = 22;            // px, per hop, there
const HANDLE = 42;            // px below a card's top, where its links meet it
const CENTRE_WITHIN = 160;    // px that a card may be below the first of its children
const MANY_LEAVES = 6;        // more are set in several columns, where there are
const MANY_DEVICES = 12;      // more are drawn compact until they are opened
const MANY_STATIONS = 24;     // more, in all, start with their lists closed
const LEVELS = 5;             // bars of a signal
const QUALITY = ['weak', 'weak', 'fair', 'fair', 'good', 'good'];  // by signal level
const TYPICAL = {good: 5, fair: 3, weak: 1};  // levels that represent a quality
const MEDIA = new Map([[0, 'Ethernet'], [1, 'Wi-Fi'], [2, 'power line'], [3, 'MoCA']]);  // by high byte
const WIDE = true;            // a fact with its own line
const FACTS = [
    ['Firmware', device => text(device.FirmwareVersion) + (isText(device.BuildNumber) ? `, build ${device.BuildNumber}` : '') +
        (isText(device.NewFirmwareVersion) ? ` (${device.NewFirmwareVersion} is available)` : ''), WIDE],
    ['Uptime', device => device.uptime],
    ['Hops', device => text(device.Hops)],
    ['IP', device => text(device.IpAddress)],
    ['Role', device => device.role],
    ['Channels', device => channelsOf(device).join(', ') || '-'],
    ['Mode', device => text(device.Mode)],
    ['Links', device => device.links.map(link => `${link.other(device).name} (${link.medium})`), WIDE],
];

const $ = id => document.getElementById(id);
const isText = value => typeof value === 'string' && value !== '';
const isNumber = value => typeof value === 'number' && Number.isFinite(value);
const text = value => isText(value) || isNumber(value) ? String(value) : '-';
const listOf = value => Array.isArray(value) ? value.filter(entry => entry !== null && typeof entry === 'object') : [];
const inside = (object, key) => object !== null && typeof object === 'object' ? object[key] : undefined;
const count = (number, noun) => `${number} ${noun}${number === 1 ? '' : 's'}`;

function duration(seconds) {
    const units = [[86400, 'd'], [3600, 'h'], [60, 'min'], [1, 's']];
    const first = units.findIndex(([size], i) => seconds >= size || i === units.length - 1);
    return units.slice(first, first + 2).map(([size, unit], i) => {
        const value = Math.floor((i === 0 ? seconds : seconds % units[first][0]) / size);
        return i === 1 && value === 0 ? '' : `${value} ${unit}`;
    }).join(' ').trim();
}

// An element; texts among the children become text nodes.
function make(name, attributes = {}, ...children) {
    const isGraphic = ['svg', 'path', 'rect', 'title'].includes(name);
    const space = isGraphic ? 'http://www.w3.org/2000/svg' : document.documentElement.namespaceURI;
    const element = document.createElementNS(space, name);
    for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
    element.append(...children);
    return element;
}

function setText(element, words) {
    if (element.textContent !== words) element.textContent = words;
}

// A line is broken between the items of a list, not within one.
function setList(element, items) {
    const words = items.map((item, i) => i < items.length - 1 ? `${item},` : item);
    if (element.textContent === (words.join(' ') || '-')) return;
    element.replaceChildren(...words.flatMap(word => [make('span', {class: 'whole'}, word), ' ']).slice(0, -1));
    if (words.length === 0) setText(element, '-');
}

// ---- Values of the JSON

function uptimeOf(device, now) {
    if (!/^\d{1,10}$/.test(text(device.Uptime))) return text(device.Uptime);
    const since = (now - Date.parse(text(device.UptimeReceived))) / 1000;
    return duration(Number(device.Uptime) + Math.max(since || 0, 0));
}

// A radio that is not there has channel 0.
function channelsOf(device) {
    return [device.Channel24G, device.Channel5G, device.ChannelExtra].filter(value => isText(value) && !/^0+$/.test(value));
}

function heardOf(device) {
    if (device.Local === true) return 'this device';
    return isNumber(device.SecondsSinceHeard) ? `heard ${duration(device.SecondsSinceHeard)} ago` : 'heard -';
}

function roleOf(device, own) {
    const isLocalController = device.Local === true && own.Role === 'Controller';
    if (isText(own.Controller) ? device.ID === own.Controller : isLocalController) return 'Controller';
    if (device.Local) return text(own.Role);
    return device.SpeaksProtocol === true ? 'Agent' : 'plain 1905.1';
}

// Both ends may report a link, and two devices may have several: it is drawn once.
function linkUp(devices) {
    const links = new Map();
    const add = (one, two, mediaType) => {
        const key = [one.id, two.id].sort().join(' ');
        if (!links.has(key)) links.set(key, {ends: [one, two], media: new Set()});
        if (isNumber(mediaType) && MEDIA.has(mediaType >> 8)) links.get(key).media.add(MEDIA.get(mediaType >> 8));
    };
    const local = [...devices.values()].find(device => device.Local === true);
    for (const device of devices.values()) {
        for (const neighbour of listOf(device.NeighborList)) {
            const other = devices.get(neighbour.ID);
            if (other && other !== device) add(device, other, neighbour.MediaType);
        }
        if (device.Hops === 1 && local) add(local, device);
    }
    for (const link of links.values()) {
        link.medium = [...link.media].sort().join(' and ') || 'medium unknown';
        link.kind = link.medium === 'Ethernet' ? 'ethernet' : link.medium === 'Wi-Fi' ? 'wifi' : 'other';
        link.other = device => link.ends[device === link.ends[0] ? 1 : 0];
        for (const end of link.ends) end.links.push(link);
    }
    return [...links.values()];
}

// Shortest paths from this device; devices without a path are placed next to it.
function growTree(devices) {
    const roots = [];
    const reached = new Set();
    const sorted = [...devices.values()].sort((a, b) => (b.Local === true) - (a.Local === true));
    for (const root of sorted) {
        if (reached.has(root)) continue;
        roots.push(Object.assign(root, {depth: 0, parent: null}));
        reached.add(root);
        for (const queue = [root]; queue.length > 0;) {
            const device = queue.shift();
            for (const link of device.links) {
                const next = link.other(device);
                if (reached.has(next)) continue;
                reached.add(next);
                device.children.push(Object.assign(next, {depth: device.depth + 1, parent: device}));
                link.isBranch = true;
                queue.push(next);
            }
        }
    }
    return roots;
}

function meshOf(data) {
    const own = inside(data, 'kv1905') ?? {};
    const stamp = text(inside(inside(data, 'wfa-dataelements:Network'), 'TimeStamp'));
    const devices = new Map();
    for (const entry of listOf(own.DeviceList)) {
        const device = {...entry, id: text(entry.ID), links: [], children: [], stations: []};
        device.name = isText(device.ModelName) ? device.ModelName : device.id;
        device.role = roleOf(device, own);
        device.uptime = uptimeOf(device, Date.parse(stamp));
        device.heard = heardOf(device);
        devices.set(device.id, device);
    }
    let stations = 0;
    for (const station of listOf(own.StationList)) {
        const device = devices.get(station.Device);
        if (!device) continue;
        device.stations.push(station);
        ++stations;
    }
    const signal = station => isNumber(station.RSSI) ? station.RSSI : -999;
    for (const device of devices.values()) device.stations.sort((a, b) => signal(b) - signal(a));
    const links = linkUp(devices);
    const tellsLinks = [...devices.values()].some(device => Array.isArray(device.NeighborList));
    return {devices, links, stations, stamp, roots: growTree(devices), tellsLinks};
}

// ---- Cards

const cards = new Map();  // by AL MAC
let mesh = {devices: new Map(), links: [], roots: [], stations: 0, stamp: '-'};
const resized = new ResizeObserver(() => scheduleLayout());

function levelOf({SignalLevel: level}) {
    return Number.isInteger(level) && level >= 0 && level <= LEVELS ? level : null;
}

function bars(level) {
    const quality = level === null ? '' : QUALITY[level];
    const svg = make('svg', {class: `bars ${quality}`, width: 22, height: 12, 'aria-hidden': 'true'});
    for (let i = 0; i < LEVELS; ++i) {
        const height = 3 + 2 * i;
        svg.append(make('rect', {class: i < level ? 'lit' : '', x: i * 4.5, y: 12 - height, width: 3, height, rx: 0.8}));
    }
    return svg;
}

function stationRow(station) {
    const rate = isNumber(station.Rate) ? String(Math.round(station.Rate / 1000)) : '-';
    const signal = isNumber(station.RSSI) ? String(station.RSSI).replace('-', '\u2212') : '-';
    return make('tr', {},
        make('td', {class: 'mac'}, text(station.MACAddress)),
        make('td', {}, text(station.Band).replace(/GHz$/, '')),
        make('td', {class: 'figure'}, bars(levelOf(station)), signal),
        make('td', {class: 'figure'}, rate));
}

// Filled when opened: thousands of hidden rows cost time at every refresh.
function fillStations(card) {
    if (!card.list.open) return card.rows.replaceChildren();
    card.rows.replaceChildren(...card.device.stations.filter(station => card.shows(station)).map(stationRow));
}

function newCard(isOpen) {
    const card = {shows: () => true};
    card.name = make('h2');
    card.role = make('span', {class: 'badge'});
    card.mac = make('p', {class: 'mac'});
    card.led = make('span', {class: 'led'});
    card.heard = make('span');
    card.facts = FACTS.map(([title, , width]) => [make('dt', {}, title), make('dd', {class: width === WIDE ? 'wide' : ''})]);
    card.total = make('span');
    card.mix = make('span', {class: 'mix'});
    card.rows = make('tbody');
    const head = ['Station', 'GHz', 'Signal dBm', 'Mbit/s'].map(
        (title, i) => make('th', {scope: 'col', class: i > 1 ? 'figure' : ''}, title));
    const table = make('table', {}, make('thead', {}, make('tr', {}, ...head)), card.rows);
    card.list = make('details', {class: 'stations'}, make('summary', {}, card.total, card.mix),
        make('div', {class: 'list', tabindex: 0, role: 'group', 'aria-label': 'Stations'}, table));
    card.list.open = isOpen;
    card.list.addEventListener('toggle', () => fillStations(card));
    card.root = make('article', {class: 'device'},
        make('div', {class: 'head'}, card.role, card.name, card.mac, make('p', {class: 'state'}, card.led, card.heard)),
        make('dl', {}, ...card.facts.flat()), card.list);
    resized.observe(card.root);
    return card;
}

function fillMix(card) {
    const totals = {good: 0, fair: 0, weak: 0};
    for (const station of card.device.stations)
        if (levelOf(station) !== null) ++totals[QUALITY[levelOf(station)]];
    const parts = Object.entries(totals).filter(([, total]) => total > 0)
        .map(([name, total]) => make('span', {title: name}, bars(TYPICAL[name]), String(total),
            make('span', {class: 'unseen'}, ` ${name}`)));
    card.mix.replaceChildren(...parts);
}

function fillCard(card, device) {
    card.device = device;
    setText(card.name, device.name);
    setText(card.role, device.role);
    card.root.classList.toggle('controller', device.role === 'Controller');
    setText(card.mac, device.id);
    setText(card.led, `LED ${text(device.LedStatus).toLowerCase()}`);
    card.led.classList.toggle('on', device.LedStatus === 'ON');
    card.led.classList.toggle('unknown', !isText(device.LedStatus));
    setText(card.heard, device.heard);
    FACTS.forEach(([, fact], i) => setList(card.facts[i][1], [fact(device)].flat()));
    setText(card.total, device.stations.length === 0 ? 'No stations' : count(device.stations.length, 'station'));
    fillMix(card);
    fillStations(card);
}

// ---- Positions

const map = $('map'), canvas = $('links');

function traverse(devices, visit) {
    for (const device of devices) {
        visit(device);
        traverse(device.children, visit);
    }
}

// Columns by distance. Many devices without children share the free columns, a bus above each row of theirs.
function assignColumns(devices, column, columns) {
    for (const device of devices) {
        const leaves = device.children.filter(child => child.children.length === 0);
        const across = leaves.length > MANY_LEAVES ? columns - column - 1 : 1;
        device.column = column;
        device.branches = device.children.filter(child => child.children.length > 0);
        device.rows = [];
        leaves.forEach((leaf, i) => {
            if (i % across === 0) device.rows.push([]);
            device.rows.at(-1).push(leaf);
            const isOnBus = leaves.length > MANY_LEAVES;
            Object.assign(leaf, {column: column + 1 + i % across, branches: [], rows: [], isOnBus});
        });
        assignColumns(device.branches, column + 1, columns);
    }
}

const tallest = row => Math.max(...row.map(device => device.height));

// The height of all children of a device, and of the device with them.
function measure(device) {
    device.branches.forEach(measure);
    const heights = [...device.branches.map(branch => branch.block), ...device.rows.map(tallest)];
    device.below = heights.reduce((sum, height) => sum + height + GAP_Y, heights.length > 0 ? -GAP_Y : 0);
    device.block = Math.max(device.height, device.below);
}

function stack(device, top) {
    device.y = top + Math.min((device.block - device.height) / 2, CENTRE_WITHIN);
    let y = top + (device.block - device.below) / 2;
    for (const branch of device.branches) {
        stack(branch, y);
        y += branch.block + GAP_Y;
    }
    for (const row of device.rows) {
        for (const leaf of row) leaf.y = y;
        y += tallest(row) + GAP_Y;
    }
}

const setWidth = (device, width) => {
    device.width = width;
    cards.get(device.id).root.style.width = `${width}px`;
};
const readHeight = device => { device.height = cards.get(device.id).root.offsetHeight; };

// Each returns the size of the whole. A card that is opened widens its column.
function placeInColumns(all, base, columns, available) {
    assignColumns(mesh.roots, 0, columns);
    const widths = [];
    for (const device of all) {
        const width = cards.get(device.id).list.open ? CARD : base;
        widths[device.column] = Math.max(widths[device.column] ?? 0, width);
    }
    const total = widths.reduce((sum, width) => sum + width + GAP_X, -GAP_X);
    let x = Math.max((available - total) / 2, 0);
    const lefts = widths.map(width => (x += width + GAP_X) - width - GAP_X);
    for (const device of all) {
        setWidth(device, widths[device.column]);
        device.x = lefts[device.column];
    }
    all.forEach(readHeight);
    let bottom = GAP_Y / 2;
    for (const root of mesh.roots) {
        measure(root);
        stack(root, bottom);
        bottom += root.block + GAP_Y;
    }
    return [Math.max(total, available), bottom];
}

function placeIndented(all, deepest, available) {
    const left = Math.max((available - LIST) / 2, 0);
    const right = Math.min(available, LIST) - (mesh.links.some(link => !link.isBranch) ? GAP_X / 4 : 0);
    const indent = Math.min(INDENT, Math.max((right - COMPACT) / Math.max(deepest, 1), 2));
    for (const device of all) {
        setWidth(device, Math.max(right - device.depth * indent, COMPACT));
        device.x = left + device.depth * indent;
    }
    all.forEach(readHeight);
    let bottom = 0;
    for (const device of all) {
        device.y = bottom;
        bottom += device.height + GAP_Y / 2;
    }
    return [available, bottom];
}

function pathInColumns(near, far, isBranch) {
    const right = near.x + near.width, from = near.y + HANDLE, to = far.y + HANDLE;
    if (isBranch && far.isOnBus)
        return `M${right} ${from}h${GAP_X / 2}V${far.y - GAP_Y / 2}H${far.x + HANDLE}V${far.y}`;
    if (near.x === far.x) return `M${right} ${from}c${GAP_X} 0 ${GAP_X} ${to - from} 0 ${to - from}`;
    const [a, b] = near.x < far.x ? [right, far.x] : [near.x, far.x + far.width];
    return `M${a} ${from}C${(a + b) / 2} ${from} ${(a + b) / 2} ${to} ${b} ${to}`;
}

function pathIndented(near, far, isBranch) {
    if (isBranch) return `M${near.x + 8} ${near.y + near.height}V${far.y + HANDLE}H${far.x}`;
    return `M${near.x + near.width} ${near.y + HANDLE}h${GAP_X / 6}V${far.y + HANDLE}h${-GAP_X / 6}`;
}

function layout() {
    const available = map.clientWidth;
    const all = [];
    traverse(mesh.roots, device => all.push(Object.assign(device, {isOnBus: false})));
    const deepest = Math.max(0, ...all.map(device => device.depth));
    const fitting = width => Math.floor((available + GAP_X) / (width + GAP_X));
    const isCompact = all.length > MANY_DEVICES || (fitting(CARD) <= deepest && fitting(COMPACT) > deepest);
    const base = isCompact ? COMPACT : CARD;
    const inColumns = fitting(base) > deepest && (deepest > 0 || all.length === 1);
    for (const device of all) cards.get(device.id).root.classList.toggle('compact', isCompact);
    const [width, height] =
        inColumns ? placeInColumns(all, base, fitting(base), available) : placeIndented(all, deepest, available);
    for (const device of all)
        Object.assign(cards.get(device.id).root.style, {left: `${device.x}px`, top: `${device.y}px`});
    map.style.height = `${height}px`;
    canvas.style.width = `${width}px`;
    const path = inColumns ? pathInColumns : pathIndented;
    canvas.replaceChildren(...mesh.links.map(link => {
        const [near, far] = [...link.ends].sort((a, b) => a.depth - b.depth || a.y - b.y);
        return make('path', {class: `link ${link.kind}`, d: path(near, far, link.isBranch)},
            make('title', {}, `${near.name} \u2013 ${far.name}: ${link.medium}`));
    }));
}

let isScheduled = false;
function scheduleLayout() {
    if (isScheduled) return;
    isScheduled = true;
    requestAnimationFrame(() => {
        isScheduled = false;
        layout();
    });
}

// ---- Finding

function search() {
    const wanted = $('find').value.trim().toLowerCase();
    const holds = values => values.some(value => text(value).toLowerCase().includes(wanted));
    let devices = 0, stations = 0;
    for (const card of cards.values()) {
        const {device} = card;
        const isIt = holds([device.id, device.ModelName, device.IpAddress, device.Mode, device.role]);
        const isHit = station => holds([station.MACAddress, station.BSSID]);
        const hits = wanted === '' ? 0 : device.stations.filter(isHit).length;
        card.shows = wanted === '' || hits === 0 ? () => true : isHit;
        card.root.classList.toggle('aside', wanted !== '' && !isIt && hits === 0);
        devices += isIt ? 1 : 0;
        stations += hits;
        fillStations(card);
    }
    setText($('found'), wanted === '' ? '' : `${count(devices, 'device')}, ${count(stations, 'station')}`);
}

function reveal(card) {
    if (!card) return;
    for (const other of cards.values()) other.root.classList.toggle('target', other === card);
    card.list.open = true;
    fillStations(card);
    card.root.scrollIntoView({block: 'nearest'});
}

// The address may name a device, as in #02:00:5e:00:01:00.
const revealAddressed = () => reveal(cards.get(location.hash.slice(1).toLowerCase()));

// ---- Keeping up to date

function warn(words) {
    setText($('notice'), words);
    $('notice').hidden = words === '';
}

function draw(data) {
    mesh = meshOf(data);
    const isOpen = mesh.stations <= MANY_STATIONS && mesh.devices.size <= MANY_DEVICES;
    for (const [id, card] of cards) {
        if (mesh.devices.has(id)) continue;
        resized.unobserve(card.root);
        card.root.remove();
        cards.delete(id);
    }
    let before = canvas;
    traverse(mesh.roots, device => {
        const card = cards.get(device.id) ?? newCard(isOpen);
        cards.set(device.id, card);
        fillCard(card, device);
        if (before.nextElementSibling !== card.root) before.after(card.root);  // a move would cost focus and scrolling
        before = card.root;
    });
    const local = mesh.roots[0]?.Local === true ? `, seen from ${mesh.roots[0].name}` : '';
    const when = mesh.stamp.replace('T', ' ').replace('Z', ' UTC');
    setText($('summary'), `${count(mesh.devices.size, 'device')}, ${count(mesh.stations, 'station')}${local}, as of ${when}`);
    warn(mesh.devices.size === 0 ? 'The file names no device.' : mesh.tellsLinks || mesh.devices.size === 1 ? '' :
        'The file does not contain the neighbours of other devices: only the links of this device are drawn.');
    search();
    layout();
}

let fresh = {stamp: '', since: 0};
function noteAge() {
    if (mesh.stamp !== fresh.stamp) fresh = {stamp: mesh.stamp, since: performance.now()};
    if (performance.now() - fresh.since > SILENCE) warn('The daemon has not written its file for a while; is it running?');
}

let drawn = '';  // the file as it was drawn
async function refresh(source) {
    try {
        const answer = await fetch(source, {cache: 'no-store'});
        const words = await answer.text();
        if (!answer.ok) throw new Error(words);
        if (words !== drawn) draw(JSON.parse(words));
        drawn = words;
        noteAge();
        setText($('status'), `Live: read every ${REFRESH / 1000} s`);
    } catch (error) {
        drawn = '';
        warn(`Not refreshed: ${error.message}`);
        setText($('status'), 'Not refreshed');
    }
    setTimeout(refresh, REFRESH, source);
}

$('levels').append(...Object.entries(TYPICAL).flatMap(([name, level]) => [bars(level), name]));
resized.observe(map);
$('find').addEventListener('input', search);
$('find').addEventListener('keydown', event => {
    if (event.key === 'Enter') reveal([...cards.values()].find(card => !card.root.classList.contains('aside')));
});
addEventListener('hashchange', revealAddressed);
const {source} = document.body.dataset;
const data = JSON.parse($('data').textContent);
if (data !== null) draw(data);
revealAddressed();
if (source !== '') refresh(source);
})();
