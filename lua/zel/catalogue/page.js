'use strict';
const find = id => document.getElementById(id);
const cards = [...document.querySelectorAll('.layer')];
const folds = [...document.querySelectorAll('.group > details')];
const words = cards.map(card => [...card.querySelectorAll('h3, h3 + code, .path, .abstract, dt, dd')]
  .map(part => part.textContent).join(' ').toLowerCase());

// Search: matching cards move out of their groups into one list, each with its path; afterwards they move back.
const search = find('search'), found = find('found'), tree = find('layers'), hits = find('hits');
const grid = hits.querySelector('.grid'), nothing = hits.querySelector('.nothing');
const places = new Map(); // of the cards that have moved
function lookFor(text) {
  for (const [card, place] of places) place.replaceWith(card);
  places.clear();
  const wanted = text.toLowerCase().split(/\s+/).filter(word => word);
  tree.hidden = wanted.length > 0;
  hits.hidden = !tree.hidden;
  document.body.classList.toggle('searching', tree.hidden);
  if (!wanted.length) { found.textContent = ''; return; }
  const hit = cards.filter((_, i) => wanted.every(word => words[i].includes(word)));
  for (const card of hit) {
    const place = document.createComment('');
    card.replaceWith(place);
    places.set(card, place);
  }
  grid.append(...hit);
  nothing.hidden = hit.length > 0;
  found.textContent = `${hit.length.toLocaleString('en')} of ${cards.length.toLocaleString('en')} layers`;
}
let waiting;
search.addEventListener('input', () => {
  clearTimeout(waiting);
  waiting = setTimeout(() => lookFor(search.value), cards.length > 500 ? 150 : 0);
});

find('open').addEventListener('click', () => folds.forEach(fold => { fold.open = true; }));
find('fold').addEventListener('click', () => {
  folds.forEach(fold => { fold.open = false; });
  document.querySelectorAll('.more[open]').forEach(more => { more.open = false; });
});

// A folded group shows a few of its maps.
for (const fold of folds) {
  const strip = document.createElement('span');
  strip.className = 'strip';
  for (const image of [...fold.querySelectorAll('.zoom > img')].slice(0, 5)) {
    const copy = new Image();
    copy.loading = 'lazy';
    copy.src = image.src;
    strip.append(copy);
  }
  fold.firstElementChild.append(strip);
}

// A group that the index leads to is opened, with those around it.
function reveal() {
  const group = /^#g\d+$/.test(location.hash) && document.querySelector(location.hash);
  if (!group) return;
  if (search.value) { search.value = ''; lookFor(''); }
  group.firstElementChild.open = true;
  for (let fold = group.closest('details'); fold; fold = fold.parentElement.closest('details')) fold.open = true;
  group.scrollIntoView();
}
addEventListener('hashchange', reveal);
document.querySelectorAll('nav a').forEach(link => link.addEventListener('click', () => setTimeout(reveal)));

// Look: the system's, until the button is used.
const root = document.documentElement;
try { root.dataset.look = localStorage.getItem('look') || ''; } catch { /* a browser that keeps nothing for files */ }
find('look').addEventListener('click', () => {
  const dark = root.dataset.look ? root.dataset.look === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
  root.dataset.look = dark ? 'light' : 'dark';
  try { localStorage.setItem('look', root.dataset.look); } catch { /* as above */ }
});

// Full-size view.
const view = find('view'), large = view.querySelector('img');
const title = view.querySelector('strong'), about = view.querySelector('span');
const maps = () => [...document.querySelectorAll('.zoom')].filter(map => map.checkVisibility());
const LARGEST = 2; // screen pixels of a picture's pixel
let shown;
function show(map) {
  shown = map;
  const card = map.closest('.layer'), link = card.querySelector('.request a');
  large.src = map.firstElementChild.src;
  large.alt = map.firstElementChild.alt;
  title.textContent = card.querySelector('h3').textContent;
  about.replaceChildren(...(link ? [link.cloneNode(true)] : []));
  if (!view.open) view.showModal();
}
function step(by) {
  const all = maps();
  const next = all[all.indexOf(shown) + by];
  if (next) show(next);
}
large.addEventListener('load', () => { large.style.maxWidth = `${large.naturalWidth * LARGEST}px`; });
view.addEventListener('click', event => {
  const button = event.target.closest('button');
  if (button && button.value !== '0') step(Number(button.value));
  else if (!event.target.closest('a, figcaption')) view.close();
});
view.addEventListener('close', () => {
  large.removeAttribute('src');
  shown.focus();
  shown.scrollIntoView({block: 'nearest'});
});
document.addEventListener('click', event => {
  const map = event.target.closest('.zoom');
  if (map) show(map);
});

// Keys: arrows go from map to map; up and down to the nearest one in the next row.
function neighbour(map, key) {
  const all = maps(), at = all.indexOf(map);
  if (key === 'ArrowLeft') return all[at - 1];
  if (key === 'ArrowRight') return all[at + 1];
  const down = key === 'ArrowDown', here = map.getBoundingClientRect();
  let best, distance = Infinity, row;
  for (let i = at + (down ? 1 : -1); all[i]; i += down ? 1 : -1) {
    const box = all[i].getBoundingClientRect();
    if (Math.abs(box.top - here.top) < here.height / 2) continue;
    row ??= box.top;
    if (Math.abs(box.top - row) > here.height / 2) break;
    if (Math.abs(box.left - here.left) < distance) { best = all[i]; distance = Math.abs(box.left - here.left); }
  }
  return best;
}
addEventListener('keydown', event => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const typing = event.target === search;
  if (view.open) {
    if (event.key === 'ArrowLeft') step(-1);
    if (event.key === 'ArrowRight') step(1);
  } else if (event.key === '/' && !typing) {
    event.preventDefault();
    search.focus();
    search.select();
  } else if (event.key === 'Escape' && (typing || search.value)) {
    search.value = '';
    lookFor('');
    search.blur();
  } else if (event.key.startsWith('Arrow') && (!typing || event.key === 'ArrowDown')) {
    const on = document.activeElement.closest('.zoom');
    const next = on ? neighbour(on, event.key) : typing ? maps()[0] : null;
    if (next) { event.preventDefault(); next.focus(); }
  }
});
