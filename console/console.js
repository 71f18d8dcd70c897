// console.js - which view is shown, who is logged in, and whether the server is there.
import * as api from './api.js';
import {$} from './dom.js';
import {openRequests, showEndpoint} from './requests.js';
import {showSwitch, hideSwitch} from './switch.js';

function say(trouble) {
  $('trouble').hidden = !trouble;
  $('trouble').textContent = trouble;
}

function route() {
  api.takeSession();
  const isSwitch = location.hash === '#/switch';
  $('requests').hidden = isSwitch;
  $('switch').hidden = !isSwitch;
  $('toRequests').toggleAttribute('aria-current', !isSwitch);
  $('toSwitch').toggleAttribute('aria-current', isSwitch);
  if (isSwitch) return showSwitch(say);
  hideSwitch();
  showEndpoint(decodeURIComponent(location.hash.slice(2)));
}

/* A question that is asked by POST and changes nothing tells who may write. */
async function tellWho() {
  if (!api.session()) return say('No session. Open the address that serve.sh prints: it ends with #session=...');
  const read = await api.send('GET', 'bridge/dot1d-base-num-ports', {poll: true});
  if (read.status === 403) return say(api.verdictOf(read));
  const write = await api.send('POST', 'loop-protect/is-valid-intf?ifNum=1', {poll: true});
  $('who').textContent = write.status === 403 ? 'This session may only read: writing answers HTTP 403.'
                                              : 'This session may read and write.';
}

addEventListener('hashchange', route);
route();
Promise.all([openRequests().then(route), tellWho()]).catch(reason => say(`${reason.message} Is serve.sh running?`));
