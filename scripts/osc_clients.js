// Clients of Open Sound Control that others wrote: osc_clients.js NODE_MODULES CLIENT PORT REPLY_PORT
// Sets a gain at PORT of this machine, queries it, and prints the answer, which comes to REPLY_PORT.
"use strict";
const [modules, name, port, replyPort] = process.argv.slice(2);
const use = require("node:module").createRequire(`${modules}/../clients.js`);
const path = "/adm/obj/11/gain";
const host = "127.0.0.1";

function got(address, value) {
    if (address === path) {
        console.log(address, value);
        process.exit(0);
    }
}

const clients = {
    "osc": () => {
        const {UDPPort} = use("osc");
        const udp = new UDPPort({localAddress: host, localPort: +replyPort, remoteAddress: host, remotePort: +port});
        udp.on("message", message => got(message.address, message.args[0]));
        udp.on("ready", () => {
            udp.send({address: path, args: [{type: "f", value: 0.25}]});
            udp.send({address: path, args: []});
        });
        udp.open();
    },
    "osc-js": () => {
        const OSC = use("osc-js");
        const osc = new OSC({plugin: new OSC.DatagramPlugin()});
        osc.on(path, message => got(message.address, message.args[0]));
        osc.on("open", () => {
            osc.send(new OSC.Message(path, 0.25), {host, port: +port});
            osc.send(new OSC.Message(path), {host, port: +port});
        });
        osc.open({host, port: +replyPort});
    },
    "node-osc": () => {
        const {Client, Server} = use("node-osc");
        const server = new Server(+replyPort, host, () => {
            const client = new Client(host, +port);
            client.send(path, 0.25, () => client.send(path, () => {}));
        });
        server.on("message", ([address, value]) => got(address, value));
    },
};
setTimeout(() => process.exit(1), 10000);
clients[name]();
