// nodemailer with its pool of connections; the message is built by it.
'use strict';
const fs = require('fs');
const nodemailer = require('nodemailer');

const task = { connections: 1, messages: 1, recipients: 1, text: 1024, attachment: '', ca: '' };
for (let i = 2; i + 1 < process.argv.length; i += 2) {
    const name = process.argv[i].replace(/^--/, '');
    const value = process.argv[i + 1];
    task[name] = name === 'attachment' || name === 'ca' ? value : Number(value);
}

const text = ('x'.repeat(62) + '\r\n').repeat(Math.floor(task.text / 64) + 1).slice(0, task.text);
const recipients = Array.from({ length: task.recipients }, (_, number) => `recipient${number}@example.org`);
const transport = nodemailer.createTransport({
    pool: true,
    host: '127.0.0.1',
    port: task.port,
    secure: false,
    ignoreTLS: task.ca === '',
    requireTLS: task.ca !== '',
    tls: task.ca === '' ? undefined : { ca: fs.readFileSync(task.ca), checkServerIdentity: () => undefined },
    maxConnections: task.connections,
    maxMessages: Infinity,
});

const wall = process.hrtime.bigint();
const cpu = process.cpuUsage();
let left = task.messages;

async function work() {
    while (left-- > 0) {
        await transport.sendMail({
            envelope: { from: 'bench@example.org', to: recipients },
            from: 'bench@example.org',
            subject: 'Benchmark',
            text,
            attachments: task.attachment === '' ? [] : [{ filename: 'attachment', path: task.attachment }],
        });
    }
}

function peakKib() {
    return Number(/VmHWM:\s*(\d+)/.exec(fs.readFileSync('/proc/self/status', 'ascii'))[1]);
}

Promise.all(Array.from({ length: task.connections }, work)).then(() => {
    const used = process.cpuUsage(cpu);
    console.log(JSON.stringify({
        seconds: Number(process.hrtime.bigint() - wall) / 1e9,
        cpu: (used.user + used.system) / 1e6,
        peak_kib: peakKib(),
    }));
    transport.close();
}).catch((error) => {
    console.error(`nodemailer: ${error.message}`);
    process.exit(1);
});
