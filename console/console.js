// console.js - chooses the view, and shows what the session may do and whether the server answers.
import * as api from './api.js';
import {$, markCurrent} from './dom.js';
import {openRequests, showEndpoint} from './requests.js';
import {allowWriting, hideSwitch, openSwitch, showSwitch} from './switch.js';

/* Shows a problem at the top of the page; an empty text hides it. */
function showTrouble(text) {
  if (text === $('trouble').textContent) return;
  $('trouble').hidden = !text;
  $('trouble').textContent = text;
}

let knownSession = null; // whose rights the page shows

const showOutage = reason => showTrouble(`${reason.message} Is serve.sh running?`);

function route() {
  api.takeSession();
  if (knownSession !== api.session()) showRights().catch(showOutage);
  const isSwitch = location.hash === '#/switch';
  $('requests').hidden = isSwitch;
  $('switch').hidden = !isSwitch;
  markCurrent($('toRequests'), !isSwitch);
  markCurrent($('toSwitch'), isSwitch);
  if (isSwitch) return showSwitch();
  hideSwitch();
  showEndpoint(decodeURIComponent(location.hash.slice(2)));
}

/* Tests the right to write with a POST that changes nothing. */
async function showRights() {
  knownSession = api.session();
  $('who').textContent = '';
  if (!api.session())
    return showTrouble('No session. Open the address that serve.sh prints: it ends with #session=...');
  const read = await api.send('GET', 'bridge/dot1d-base-num-ports', {isPoll: true});
  if (read.status === 403) return showTrouble(api.verdictOf(read));
  const write = await api.send('POST', 'loop-protect/is-valid-intf?ifNum=1', {isPoll: true});
  allowWriting(write.status !== 403);
  $('who').textContent = write.status === 403 ? 'This session may only read: writing answers HTTP 403.'
                                              : 'This session may read and write.';
}

openSwitch(showTrouble);
addEventListener('hashchange', route);
route();
openRequests().then(route).catch(showOutage);
