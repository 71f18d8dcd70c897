/*
 * example.ts BASE TOKEN - a client whose paths, keys, words and answers are checked by the compiler: switching.d.ts is
 * made of openapi.json. It sets up a VLAN, walks the VLANs, and filters an address.
 */
import createClient from "openapi-fetch";
import type { paths } from "./switching.js";

declare const process: { argv: string[] };
const [baseUrl, token] = process.argv.slice(2);

const client = createClient<paths>({
  baseUrl,
  headers: { Session: token },
  querySerializer: { allowReserved: true }, // values in a query go as they are
});

type Answer = { resp: { respCode: number; respMsg: string; status: "success" | "fail" } };
type Success<A extends Answer> = Extract<A, { resp: { status: "success" } }>;

/* The answer of a request that succeeded. Failures come with status 200 as well. */
async function succeeded<A extends Answer>(request: Promise<{ data?: A; response: Response }>): Promise<Success<A>> {
  const { data, response } = await request;
  if (!data) throw new Error(`HTTP ${response.status}`);
  if (data.resp.status !== "success") throw new Error(`${data.resp.respCode} ${data.resp.respMsg}`);
  return data as Success<A>;
}

/* VLAN 30, with port 4 in it. */
await succeeded(client.POST("/vlan/create", { params: { query: { vlanNum: 30 } } }));
await succeeded(client.PUT("/vlan/if-pvid", { params: { query: { ifNum: 4 } }, body: { vlanNum: 30 } }));

const again = await client.POST("/vlan/create", { params: { query: { vlanNum: 30 } } });
console.log(`once more: ${again.data?.resp.respMsg}`);

/* A walk: each answer leads to the next, a failure ends it. */
const vlans = [];
for (let vid = 0; ; ) {
  const { data } = await client.GET("/vlan/next-vlan", { params: { query: { vid } } });
  if (!data || !("vlan" in data)) break;
  vlans.push((vid = data.vlan.nextVid));
}
console.log(`VLANs: ${vlans.join(" ")}`);

/* A filter, whose address stands in a body and then in a query. */
const filter = { vlanId: 30, macAddr: "02:00:00:00:0A:01" };
await succeeded(client.POST("/static-filter/filter",
  { params: { query: { vlanId: filter.vlanId } }, body: { macAddr: filter.macAddr } }));
await succeeded(client.POST("/static-filter/filter-src-intf",
  { params: { query: { vlanId: filter.vlanId, ifNum: 5 } }, body: { macAddr: filter.macAddr } }));
const sources = await succeeded(client.GET("/static-filter/filter-src-intf-list", { params: { query: filter } }));
console.log(`sources of ${filter.macAddr}: ${sources.staticFilter.srcIntfList}`);

/* Words are checked before anything runs. */
await succeeded(client.PUT("/storm-control/mode", { body: { stormCtrlMode: "broadcast", state: "enable" } }));
// @ts-expect-error: there is no such word
await client.PUT("/storm-control/mode", { body: { stormCtrlMode: "all", state: "enable" } });
// @ts-expect-error: nor such a key
await client.GET("/storm-control/mode", { params: { query: { mode: "broadcast" } } });
