#!/usr/bin/env python3
"""Python's smtplib, one connection on each thread, the message built by its email package."""
import argparse
import email.message
import json
import smtplib
import ssl
import threading
import time


def parse():
    parser = argparse.ArgumentParser()
    for name, default in (("port", None), ("connections", 1), ("messages", 1), ("recipients", 1), ("text", 1024)):
        parser.add_argument("--" + name, type=int, default=default, required=default is None)
    parser.add_argument("--attachment", default="")
    parser.add_argument("--ca", default="")
    return parser.parse_args()


def text_of(size):
    return (("x" * 62 + "\r\n") * (size // 64 + 1))[:size]


def make_message(task):
    message = email.message.EmailMessage()
    message["From"] = "bench@example.org"
    message["Subject"] = "Benchmark"
    message.set_content(text_of(task.text))
    if task.attachment:
        with open(task.attachment, "rb") as file:
            message.add_attachment(file.read(), maintype="application", subtype="octet-stream", filename="attachment")
    return message


def deliver(task, count):
    recipients = [f"recipient{number}@example.org" for number in range(task.recipients)]
    with smtplib.SMTP("127.0.0.1", task.port) as client:
        if task.ca:
            context = ssl.create_default_context(cafile=task.ca)
            context.check_hostname = False
            client.starttls(context=context)
        for _ in range(count):
            client.send_message(make_message(task), "bench@example.org", recipients)


def peak_kib():
    with open("/proc/self/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmHWM:"))


def main():
    task = parse()
    share, rest = divmod(task.messages, task.connections)
    threads = [threading.Thread(target=deliver, args=(task, share + (number < rest)))
               for number in range(task.connections)]
    wall, cpu = time.monotonic(), time.process_time()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(json.dumps({"seconds": time.monotonic() - wall, "cpu": time.process_time() - cpu, "peak_kib": peak_kib()}))


if __name__ == "__main__":
    main()
